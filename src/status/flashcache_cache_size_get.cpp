// How large the live caches are.

#include "common/log.h"
#include "status/status.h"

using namespace flashcache;

int VEMOFlashCacheCacheSizeGet(const FLASHCACHE_STAT_SEARCH* search, uint64_t* size) {
    if (size == nullptr) {
        SetError(VLIBC_ERR_BAD_PARAMETER);
        return -1;
    }
    StatList caches;
    if (VEMOFlashCacheStatGet(search, caches.address()) < 0) {
        LogError()("Fail to get cache stat");
        return -1;
    }
    for (const FLASHCACHE_STAT* cache = caches.get(); cache != nullptr; cache = cache->Next) {
        *size +=
            static_cast<uint64_t>(static_cast<int64_t>(cache->BlockSizeKB)) * (cache->TotalBlocks * 1024);
    }
    return 0;
}
