// What the kernel counts of one cache at one moment.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "caches/inventory.h"
#include "output/record.h"

namespace cli {

// Numbers by the names that the kernel gives them.
using Numbers = std::map<std::string, std::uint64_t, std::less<>>;

struct Reading {
    using Clock = std::chrono::steady_clock;

    std::string name;
    std::string state;
    Value writeMode;
    Clock::time_point time;  // by the monotonic clock
    Numbers counters;        // empty: not up, or not to be read
    Numbers errors;
    std::uint64_t blockSize = 0;  // bytes; 0: not known
    std::optional<std::uint64_t> dirtyBlocks;
    std::optional<std::uint64_t> totalBlocks;
    std::optional<std::uint64_t> cachedBlocks;
};

Reading ReadingOf(const Cache& cache);

// Of a cache that was read before and is no more to be found.
Reading Gone(const std::string& name);

// The numbers in a text such as "reads=3 writes=4\nread_hits=1 read_hit_percent=33\n"; what is none is left
// out.
Numbers NumbersIn(std::string_view text);

// The numbers in a file of that form; none when it cannot be read.
Numbers NumbersInFile(const std::string& path);

// The number of this name; nothing where the kernel has none.
std::optional<std::uint64_t> NumberOf(const Numbers& numbers, std::string_view name);

}  // namespace cli
