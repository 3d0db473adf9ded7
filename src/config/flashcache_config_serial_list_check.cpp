// Comparing serial numbers of SSDs with the stored ones.

#include <cstring>

#include "common/log.h"
#include "common/text.h"
#include "config/serial_list.h"
#include "vemoflashcache.h"

namespace flashcache {
namespace {

// A list begins with its item count; an entry of it may be NULL.
int ItemCount(const VLIBC_SZLIST* list) noexcept {
    int count = 0;
    if (list != nullptr) {
        std::memcpy(&count, list, sizeof count);
    }
    return count;
}

}  // namespace
}  // namespace flashcache

using namespace flashcache;

int VEMOFlashcacheConfigSerialListCheck(const char* section, const struct VLIBC_SZLIST* serials) {
    StringList stored;
    const int found = VEMOFlashcacheConfigSerialListGet(section, stored.address());
    if (found < 0) {
        LogError()("Failed to get serial list of %s", TextOrNull(section));
        return 0;
    }
    if (found == 0) {
        LogError()("No available SSDs of %s in system", section);
        return 0;
    }
    for (int i = 0; i < ItemCount(serials); ++i) {
        const char* serial = VLIBCSzListGet(serials, i);
        if (serial == nullptr) {
            LogError()("NULL entry in SSD list");
        } else if (VLIBCSzListFind(stored.get(), serial) < 0) {
            return 1;
        }
    }
    return 0;
}
