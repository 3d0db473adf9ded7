// What an SSD itself tells of the cache that lies on it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "vemoflashcache.h"

namespace cli {

struct SsdContent {
    std::string ssd;  // device paths, as they were when the cache was made
    std::string volume;
    std::int32_t mode = FLASHCACHE_WRITE_BACK;  // the kernel's, for which the kinds of write-back are one
    std::int32_t format = FLASHCACHE_VERSION_UNKNOWN;
    std::uint64_t blockSize = 0;  // bytes
    std::uint64_t blocks = 0;
    bool inOrder = false;  // it was taken down in order, and is not up
    // The blocks that lie on the SSD alone; nothing when the SSD's list of them cannot be read. It lags
    // behind the kernel while the cache is up.
    std::optional<std::uint64_t> dirtyBlocks;

    [[nodiscard]] std::uint64_t Bytes() const { return blocks * blockSize; }
};

// No limit to what is read of an SSD's list of blocks, of 8 bytes each.
inline constexpr std::uint64_t kAnyBlocks = UINT64_MAX;

// Nothing when no cache lies there, or in a layout that is not known. The dirty blocks of a cache with more
// than `mostBlocks` blocks are not counted.
std::optional<SsdContent> ReadSsdContent(const std::string& ssd, std::uint64_t mostBlocks = kAnyBlocks);

// Whether nothing stands where a cache has its superblock, as after a wipe. False when it cannot be read.
bool IsBlank(const std::string& ssd);

}  // namespace cli
