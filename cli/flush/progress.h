// How far the write-back of a cache's dirty blocks has come.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>

#include "caches/inventory.h"
#include "output/record.h"

namespace cli {

struct Progress {
    std::optional<double> percent;             // of the flush that runs; nothing when none does
    std::optional<std::uint64_t> dirtyBlocks;  // still to be written back
    std::optional<std::uint64_t> writeErrors;  // write-backs that failed
    bool ssdFailed = false;                    // the SSD could not be read, which fails write-backs too
    std::optional<double> blocksPerSecond;
    std::uint64_t blockSize = 0;   // bytes
    std::chrono::seconds idle{0};  // since a block came clean last, while some are dirty
    bool stalled = false;          // no block came clean for a while
};

// Watches one cache; each reading adds to what rate and time left are told from.
class ProgressMeter {
  public:
    explicit ProgressMeter(const Cache& cache);

    Progress Read();

  private:
    using Clock = std::chrono::steady_clock;
    struct Sample {
        Clock::time_point time;
        std::uint64_t dirtyBlocks;
    };

    void Rate(Progress& progress, std::uint64_t dirty);

    std::string ssd_;
    std::string volume_;
    std::uint64_t blockSize_;
    std::deque<Sample> samples_;  // the last seconds
    Clock::time_point lastAdvance_ = Clock::now();
};

// The fields of a progress, from which lines and JSON are formed.
std::vector<Field> FieldsOf(const Progress& progress);

// Why write-backs failed, such as "the volume refused 3 writes"; nothing when none did.
std::optional<std::string> WhyWriteBacksFailed(const Progress& progress);

// Seconds until no block is dirty, at the present rate.
std::optional<std::uint64_t> SecondsLeft(const Progress& progress);

}  // namespace cli
