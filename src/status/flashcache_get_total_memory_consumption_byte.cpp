// The kernel memory that all configured caches will need.

#include <cinttypes>

#include "common/log.h"
#include "config/config.h"
#include "status/memory_model.h"

namespace flashcache {
namespace {

// Adds what one cache's pin bitmap needs. False when its size cannot be had.
bool AddPinBitmap(const char* referencePath, uint64_t& bytes) noexcept {
    if (VEMOFlashCachePinIsVolumeSupport(referencePath) == 0) {
        return true;
    }
    uint64_t bitmapBytes = 0;
    if (VEMOFlashCachePinGetBitmapSizeByte(referencePath, &bitmapBytes) != 0) {
        LogError()("Can't get the bitmap size of volume (%s)", referencePath);
        return false;
    }
    bytes += bitmapBytes;
    return true;
}

// Adds what one cache needs. False when that cannot be reckoned.
bool AddCache(const FLASHCACHE_CONFIG& cache, bool modelPins, uint64_t& bytes) noexcept {
    switch (cache.CacheVersion) {
        case FLASHCACHE_VERSION_ORIGINAL:
            bytes += MetadataBytes(kOriginalMemory, cache.CacheSizeByte);
            return true;
        case FLASHCACHE_VERSION_NEW:
            bytes += MetadataBytes(kNewMemory, cache.CacheSizeByte);
            return !modelPins || AddPinBitmap(cache.ReferencePath, bytes);
        case FLASHCACHE_VERSION_UNKNOWN:
            LogError()("Incorect flashcache version");
            return false;
        default:
            LogError()("Unknown version = %d", cache.CacheVersion);
            return true;
    }
}

}  // namespace
}  // namespace flashcache

using namespace flashcache;

int VEMOFlashCacheGetTotalMemoryConsumptionByte(uint64_t* bytes) {
    if (bytes == nullptr) {
        LogError()("Error: Parameter should not be NULL!");
        return -1;
    }
    ConfigList caches;
    const int count = VEMOFlashCacheConfigTmpGet(nullptr, caches.address());
    if (count < 0) {
        LogError()("Fail to get SSD cache config");
        return -1;
    }
    if (count == 0) {
        *bytes = 0;
        return 0;
    }
    const bool modelPins = ModelSupportPin() != 0;
    for (const FLASHCACHE_CONFIG* cache = caches.get(); cache != nullptr; cache = cache->Next) {
        if (!AddCache(*cache, modelPins, *bytes)) {
            return count;
        }
    }
    *bytes += kFixedBytesOfAllCaches;
    LogDebug()("Total memory bytes = %" PRIu64, *bytes);
    return 0;
}
