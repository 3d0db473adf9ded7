#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "base/write_mode.h"

namespace sizing {

using base::WriteMode;

// What a kernel counts of one cache. Reads and writes are counted per block that they touch.
enum class Counter : std::uint8_t {
    kNone,  // counted by nothing here: no queue, no merging
    kReads,
    kWrites,
    kReadHits,
    kWriteHits,
    kWriteMissSsd,
    kDirtyWriteHits,
    kReplacement,
    kWriteReplacement,
    kWriteInvalidates,
    kReadInvalidates,
    kMetadataDirties,
    kMetadataCleans,
    kMetadataBatch,
    kMetadataSsdWrites,
    kCleanings,
    kFallowCleanings,
    kNoRoom,
    kDiskReads,
    kDiskWrites,
    kSsdReads,
    kSsdWrites,
    kUncachedReads,
    kUncachedWrites,
    kUncachedSequentialReads,
    kUncachedSequentialWrites,
    kDiskReadErrors,
    kDiskWriteErrors,
    kSsdReadErrors,
    kSsdWriteErrors,
    kCount
};

// As the kernel calls it; empty for what it does not tell.
std::string_view NameOf(Counter counter);

class Counters {
  public:
    void Add(Counter counter, std::uint64_t count = 1) {
        values_[static_cast<std::size_t>(counter)] += count;
    }
    std::uint64_t operator[](Counter counter) const { return values_[static_cast<std::size_t>(counter)]; }
    Counters& operator+=(const Counters& other);
    // Each so many times as much.
    void Scale(double factor);
    void Reset() { values_ = {}; }
    // By the name that Format gives it; nothing for another.
    void Set(std::string_view name, std::uint64_t value);

    // The two lines of "flashcache_stats"; a write-around cache has fewer counters than the others.
    std::string Format(WriteMode mode) const;

  private:
    std::array<std::uint64_t, static_cast<std::size_t>(Counter::kCount)> values_{};
};

}  // namespace sizing
