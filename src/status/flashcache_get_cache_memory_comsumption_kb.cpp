// The fixed kernel memory of one configured cache.

#include "common/log.h"
#include "config/config.h"
#include "status/memory_model.h"

using namespace flashcache;

uint32_t VEMOFlashCacheGetCacheMemoryComsuptionKb(const FLASHCACHE_CONFIG_SEARCH* search) {
    if (search == nullptr) {
        return kNewMemory.fixedKB;
    }
    ConfigList entry;
    const int found = VEMOFlashCacheConfigTmpGet(search, entry.address());
    if (found < 0) {
        LogError()("Fail to get SSD cache config");
        return 0;
    }
    if (found == 0 || !entry) {
        LogError()("Can't find cache in the config file");
        return 0;
    }
    switch (entry->CacheVersion) {
        case FLASHCACHE_VERSION_ORIGINAL:
            return kOriginalMemory.fixedKB;
        case FLASHCACHE_VERSION_NEW:
            return kNewMemory.fixedKB;
        case FLASHCACHE_VERSION_UNKNOWN:
            LogError()("Incorect flashcache version");
            return 0;
        default:
            return 0;
    }
}
