// Removing configuration entries.

#include <unistd.h>

#include "common/held_lock.h"
#include "common/log.h"
#include "config/config.h"

namespace flashcache {
namespace {

int RefreshCopy(Where where = Where::current()) noexcept {
    if (VEMOFlashCacheConfigTmpUpdate() != 0) {
        LogError(where)("Can't update config in /tmp");
        return -1;
    }
    return 0;
}

int RemoveSection(const char* section) noexcept {
    const HeldLock lock(kConfigLockFile);
    if (!lock) {
        return -1;
    }
    if (VLIBCFileRemoveSection(kConfigFile, section) < 0) {
        LogPlatformError()("Failed to remove section [%s] from [%s] ", section, kConfigFile);
        return -1;
    }
    return RefreshCopy();
}

}  // namespace
}  // namespace flashcache

using namespace flashcache;

int VEMOFlashCacheConfigDelete(const FLASHCACHE_CONFIG_SEARCH* criteria) {
    if (criteria == nullptr) {
        unlink(kConfigFile);
        return 0;
    }
    ConfigList entry;
    const int found = VEMOFlashCacheConfigGet(criteria, entry.address());
    if (found < 0) {
        LogPlatformError()("Failed to get config, ");
        return -1;
    }
    if (found == 0 || !entry) {
        return RefreshCopy();
    }
    return RemoveSection(entry->SectionName);
}
