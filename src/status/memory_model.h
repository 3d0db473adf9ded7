// The kernel memory that caches need, by cache version.
#pragma once

#include <cstdint>

namespace flashcache {

struct MemoryModel {
    uint32_t fixedKB;
    uint32_t blockBytes;
    uint32_t metadataBytesPerBlock;
};

inline constexpr MemoryModel kOriginalMemory{4096, 4096, 16};
inline constexpr MemoryModel kNewMemory{416, 65536, 26};

// Needed once, however many caches are configured.
inline constexpr uint64_t kFixedBytesOfAllCaches = 67493888;

// Block metadata of a cache of `cacheBytes`; a part of a block needs none.
constexpr uint64_t MetadataBytes(const MemoryModel& model, uint64_t cacheBytes) noexcept {
    return cacheBytes / model.blockBytes * model.metadataBytesPerBlock;
}

}  // namespace flashcache
