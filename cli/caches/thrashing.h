// Whether a cache gives blocks up before anybody reads them again.
#pragma once

#include <cstdint>

namespace cli {

// Since the counters began.
struct BlockUse {
    std::uint64_t total = 0;     // blocks of the cache
    std::uint64_t cached = 0;    // that hold something
    std::uint64_t replaced = 0;  // that made way for others
    std::uint64_t reads = 0;     // of blocks, those aside that went past the cache
    std::uint64_t hits = 0;      // of them
};

constexpr bool IsFull(const BlockUse& use) {
    constexpr std::uint64_t kFullPercent = 98;
    return use.total > 0 && use.cached * 100 >= use.total * kFullPercent;
}

// It is full and has replaced all of its blocks once at least, and few reads hit.
constexpr bool IsThrashing(const BlockUse& use) {
    constexpr std::uint64_t kFewHitsPercent = 20;
    return IsFull(use) && use.replaced >= use.total && use.reads >= use.total &&
           use.hits * 100 < use.reads * kFewHitsPercent;
}

}  // namespace cli
