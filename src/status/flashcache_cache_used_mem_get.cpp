// The kernel memory that the block metadata of the live caches takes.

#include "common/log.h"
#include "status/memory_model.h"
#include "status/status.h"

namespace flashcache {
namespace {

// 0 for a block size that no cache version has.
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

bool AddMetadata(const FLASHCACHE_STAT& cache, uint64_t& bytes) noexcept {
    const uint64_t perBlock = MetadataBytesPerBlock(cache.BlockSizeKB);
    if (perBlock == 0) {
        LogError()("Block size KB is unknown(%d)", cache.BlockSizeKB);
        return false;
    }
    bytes += cache.TotalBlocks * perBlock;
    return true;
}

}  // namespace
}  // namespace flashcache

using namespace flashcache;

int VEMOFlashcacheUsedMemGet(const FLASHCACHE_STAT_SEARCH* search, uint64_t* bytes) {
    return SumOverCaches(search, bytes, AddMetadata);
}
