// The cache devices that are up, each with the exact pair behind it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "caches/library_lists.h"
#include "support/failure.h"

namespace cli {

// What the kernel's table says of a cache device.
struct Pair {
    std::string ssd;  // device paths, as the table has them
    std::string volume;
    std::optional<std::int32_t> mode;  // a FLASHCACHE_WRITE_MODE, as the kernel tells modes
    std::uint64_t blockSize = 0;       // bytes; 0: not known
    std::optional<std::uint64_t> blocks;
    std::optional<std::uint64_t> cachedBlocks;
};

struct RunningCache {
    std::string device;        // "/dev/mapper/cachedev_N"
    StatList stat;             // nothing when its status cannot be read
    ErrorSlot statError;       // why
    std::optional<Pair> pair;  // nothing when its table cannot be read: it may be any cache
};

// All that are up, by name. The library's own search by SSD or volume compares beginnings of paths and takes
// /dev/md3 for /dev/md30; this asks each device for itself. Without the status, only the
// tables are read, by one program for all.
std::vector<RunningCache> RunningCaches(bool withStatus = true);

// The pair in the table of a cache device, which has lines such as
// "\tssd dev (/dev/md3), disk dev (/dev/vg1/volume_1) cache mode(WRITE_BACK)",
// "\tcapacity(1024M), associativity(512), data block size(4K) metadata block size(4096b)" and
// "\ttotal blocks(262144), cached blocks(1024), cache percent(0)".
std::optional<Pair> PairIn(std::string_view table);

// The kernel's name of a pair, which its knobs, counters and locks go by: "md3+volume_1"; empty when a path
// has no last part.
std::string KernelName(const std::string& ssd, const std::string& volume);

// Where a pair runs.
struct Place {
    std::string device;    // empty: it does not run, or that is not known
    bool isKnown = false;  // false: some device cannot be asked, and it may be that one
};
Place PlaceOf(const std::string& ssd, const std::string& volume);

// What became of its device after a failed step: "is still up", "is down", or that it is not known.
std::string PlaceText(const Place& place);

// Which cache device the library's search takes for this path; empty when it finds none.
std::string LibraryFinds(const std::string& path);

}  // namespace cli
