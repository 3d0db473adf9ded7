// How fast a cache's dirty blocks come clean in a flush: measured in one, and kept to tell how long the next
// will take.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

#include "caches/inventory.h"
#include "flush/progress.h"

namespace cli {

// Blocks a second of the last flush that was measured; nothing when none was.
std::optional<double> KeptPace(const Cache& cache);

// Seconds until so many blocks are clean at the kept pace; nothing when that is not known.
std::optional<std::uint64_t> ExpectedSeconds(const Cache& cache, std::optional<std::uint64_t> dirtyBlocks);

// Measures one flush by its readings.
class PaceMeter {
  public:
    void See(const Progress& progress);

    // Keeps what was measured, if it was long enough to say something.
    void Keep(const Cache& cache) const;

  private:
    using Clock = std::chrono::steady_clock;
    struct Reading {
        Clock::time_point time;
        std::uint64_t dirtyBlocks;
    };

    std::optional<Reading> first_;
    std::optional<Reading> least_;  // the first of those with the fewest dirty blocks
};

}  // namespace cli
