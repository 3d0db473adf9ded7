// The status of the one cache that an operation acts on.

#include "common/log.h"
#include "status/status.h"

namespace flashcache {

int GetCacheStatus(const char* cacheDevPath, StatList& status, Where where) noexcept {
    FLASHCACHE_STAT_SEARCH search{};
    search.type = FLASHCACHE_SEARCH_BY_CACHE_DEV_PATH;
    search.CacheDevPath = cacheDevPath;
    if (VEMOFlashCacheStatGet(&search, status.address()) < 1 || !status) {
        SetError(VLIBC_ERR_NOT_FOUND, where);
        LogPlatformError(where)("Failed to get status of flashcache [%s], ", cacheDevPath);
        return -1;
    }
    return 0;
}

}  // namespace flashcache
