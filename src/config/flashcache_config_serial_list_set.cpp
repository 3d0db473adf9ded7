// Storing the serial numbers of SSDs.

#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "common/log.h"
#include "config/config.h"
#include "config/serial_list.h"

namespace flashcache {
namespace {

// Replaces the section, or appends it where file or section are not there yet.
int WriteSection(const char* section, const StringHash& keys) noexcept {
    if (VLIBCFileSetSection(kSerialFile, section, nullptr, keys.get(), kKeyLineFormat) >= 1) {
        return 0;
    }
    const int error = VLIBCErrGet();
    if (error != VLIBC_ERR_OPEN_FAILED && error != VLIBC_ERR_SECTION_NOT_FOUND) {
        LogError()("Failed to set key [%s] into %s err=%d", section, kSerialFile, error);
        return -1;
    }
    if (VLIBCFileAddSection(kSerialFile, section, keys.get(), kKeyLineFormat) < 0) {
        LogError()("Failed to add key[%s] into %s", section, kSerialFile);
        return -1;
    }
    return 0;
}

}  // namespace
}  // namespace flashcache

using namespace flashcache;

int VEMOFlashcacheConfigSerialListSet(const char* section, const char* serials) {
    if (section == nullptr || serials == nullptr) {
        LogError()("Incorrect paramter");
        return -1;
    }
    StringHash keys(VLIBCSzHashAlloc(kSectionCapacity));
    if (!keys) {
        LogError()("Failed to alloc hash for [%s]", section);
        return -1;
    }
    if (VLIBCSzHashSetValue(keys.address(), kSerialKey, serials) != 0) {
        return -1;
    }
    const SerialLock lock;
    if (!lock || WriteSection(section, keys) != 0) {
        return -1;
    }
    // Serial numbers are nobody else's business; the list is stored either way.
    if (chmod(kSerialFile, 0600) != 0) {
        LogError()("Failed to change permission mode (%s)", strerror(errno));
    }
    return 0;
}
