// The status of the caches that an operation acts on.

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

int SumOverCaches(const FLASHCACHE_STAT_SEARCH* search, uint64_t* sum,
                  bool (*add)(const FLASHCACHE_STAT& cache, uint64_t& sum), Where where) noexcept {
    if (sum == nullptr) {
        SetError(VLIBC_ERR_BAD_PARAMETER, where);
        return -1;
    }
    StatList caches;
    if (VEMOFlashCacheStatGet(search, caches.address()) < 0) {
        LogError(where)("Fail to get cache stat");
        return -1;
    }
    for (const FLASHCACHE_STAT* cache = caches.get(); cache != nullptr; cache = cache->Next) {
        if (!add(*cache, *sum)) {
            return -1;
        }
    }
    return 0;
}

}  // namespace flashcache
