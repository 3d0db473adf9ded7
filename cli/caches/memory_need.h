// The kernel memory that a configured cache will take, reckoned without the pin tool, which the library asks
// for each cache: pin bitmaps are left out.
#pragma once

#include <cstdint>

#include "vemoflashcache.h"

namespace cli {

// Once, however many caches there are.
inline constexpr std::uint64_t kMemoryOfAllCaches = 67493888;

constexpr std::uint64_t MemoryOfCache(FLASHCACHE_VERSION format, std::uint64_t bytes) {
    switch (format) {
        case FLASHCACHE_VERSION_ORIGINAL:
            return bytes / 4096 * 16;
        case FLASHCACHE_VERSION_NEW:
            return bytes / 65536 * 26;
        default:
            return 0;
    }
}

}  // namespace cli
