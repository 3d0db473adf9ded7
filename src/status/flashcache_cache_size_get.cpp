// How large the live caches are.

#include "status/status.h"

namespace flashcache {
namespace {

bool AddSize(const FLASHCACHE_STAT& cache, uint64_t& size) noexcept {
    size += static_cast<uint64_t>(static_cast<int64_t>(cache.BlockSizeKB)) * (cache.TotalBlocks * 1024);
    return true;
}

}  // namespace
}  // namespace flashcache

using namespace flashcache;

int VEMOFlashCacheCacheSizeGet(const FLASHCACHE_STAT_SEARCH* search, uint64_t* size) {
    return SumOverCaches(search, size, AddSize);
}
