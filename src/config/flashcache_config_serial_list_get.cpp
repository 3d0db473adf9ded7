// Reading the serial numbers of SSDs.

#include "common/log.h"
#include "config/config.h"
#include "config/serial_list.h"
#include "vemoflashcache.h"

namespace flashcache {
namespace {

// The serial numbers in a section's keys; empty on failure.
StringList SplitSerials(const StringHash& keys) noexcept {
    StringList serials(VLIBCSzListAlloc(kSectionCapacity));
    if (!serials) {
        LogError()("Fail to allocate list");
        return serials;
    }
    const char* value = VLIBCSzHashGetValue(keys.get(), kSerialKey);
    if (value == nullptr) {
        LogError()("Failed to get %s from %s", kSerialKey, kSerialFile);
        return StringList();
    }
    if (VLIBCStrTok(value, ",", serials.address()) < 0) {
        LogError()("Failed to strtok %s", value);
        return StringList();
    }
    return serials;
}

}  // namespace
}  // namespace flashcache

using namespace flashcache;

int VEMOFlashcacheConfigSerialListGet(const char* section, struct VLIBC_SZLIST** list) {
    if (section == nullptr || list == nullptr) {
        LogError()("Incorrect paramter");
        return -1;
    }
    if (VLIBCFileExist(kSerialFile) == 0) {
        return 0;
    }
    StringHash keys(VLIBCSzHashAlloc(kSectionCapacity));
    if (!keys) {
        LogError()("Failed to alloc hash for %s", kSerialFile);
        return -1;
    }
    const SerialLock lock;
    if (!lock) {
        return -1;
    }
    const int found = VLIBCFileGetSection(kSerialFile, section, keys.address());
    if (found < 0) {
        LogError()("Failed to get section [%s] from %s", section, kSerialFile);
        return -1;
    }
    if (found == 0) {
        return 0;
    }
    StringList serials = SplitSerials(keys);
    if (!serials) {
        return -1;
    }
    *list = serials.release();
    return 1;
}
