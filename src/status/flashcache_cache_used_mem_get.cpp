// The kernel memory that the block metadata of the live caches takes.

#include "common/log.h"
#include "status/memory_model.h"
#include "status/status.h"

namespace flashcache {
namespace {

/// 0 for a block size that no cache version has.
uint64_t MetadataBytesPerBlock(int32_t blockSizeKB) noexcept {
    switch (blockSizeKB) {
        case kOriginalMemory.blockBytes / 1024:
            return kOriginalMemory.metadataBytesPerBlock;
        case kNewMemory.blockBytes / 1024:
            return kNewMemory.metadataBytesPerBlock;
        default:
            return 0;
    }
}

}  // namespace
}  // namespace flashcache

using namespace flashcache;

int VEMOFlashcacheUsedMemGet(const FLASHCACHE_STAT_SEARCH* search, uint64_t* bytes) {
    if (bytes == nullptr) {
        SetError(VLIBC_ERR_BAD_PARAMETER);
        return -1;
    }
    StatList caches;
    if (VEMOFlashCacheStatGet(search, caches.address()) < 0) {
        LogError()("Fail to get cache stat");
        return -1;
    }
    for (const FLASHCACHE_STAT* cache = caches.get(); cache != nullptr; cache = cache->Next) {
        const uint64_t perBlock = MetadataBytesPerBlock(cache->BlockSizeKB);
        if (perBlock == 0) {
            LogError()("Block size KB is unknown(%d)", cache->BlockSizeKB);
            return -1;
        }
        *bytes += cache->TotalBlocks * perBlock;
    }
    return 0;
}
