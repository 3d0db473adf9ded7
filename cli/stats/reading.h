// What the kernel counts of one cache at one moment.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "caches/inventory.h"
#include "caches/kernel_files.h"
#include "output/record.h"

namespace cli {

struct Reading {
    using Clock = std::chrono::steady_clock;

    std::string name;
    std::string state;
    Value writeMode;
    Clock::time_point time;  // by the monotonic clock
    Counts counters;         // by the kernel's names; empty: not up, or not to be read
    Counts errors;
    std::uint64_t blockSize = 0;  // bytes; 0: not known
    std::optional<std::uint64_t> dirtyBlocks;
    std::optional<std::uint64_t> totalBlocks;
    std::optional<std::uint64_t> cachedBlocks;
};

Reading ReadingOf(const Cache& cache);

// Of a cache that was read before and is no more to be found.
Reading Gone(const std::string& name);

// The count of this name; nothing where the kernel has none.
std::optional<std::uint64_t> NumberOf(const Counts& counts, std::string_view name);

}  // namespace cli
