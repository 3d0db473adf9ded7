// What a cache of each size would miss.
#pragma once

#include <cstdint>

#include "sizing/curve/histogram.h"
#include "sizing/curve/references.h"

namespace sizing {

// How many references to blocks there were.
struct References {
    double reads = 0;
    double writes = 0;

    double& Of(Kind kind) noexcept { return kind == Kind::kRead ? reads : writes; }
    [[nodiscard]] double Of(Kind kind) const noexcept { return kind == Kind::kRead ? reads : writes; }
};

// Whole blocks, in bytes.
struct WorkingSet {
    double touched = 0;
    double touchedTwice = 0;  // or more often: what a cache can be of use for
};

// The miss-ratio curve of LRU: a reference hits in a cache of so many blocks when its reuse distance is
// smaller. Reads and writes both bring a block in and make it the latest one.
class MissRatioCurve {
  public:
    MissRatioCurve(BlockSize blockSize, DistanceHistogram distances, References references,
                   WorkingSet workingSet);

    // The share of references that a cache misses, from 0 to 1: of all, or of the reads or writes among them.
    // 0 where there are none.
    [[nodiscard]] double MissRatio(std::uint64_t cacheBytes) const;
    [[nodiscard]] double MissRatio(std::uint64_t cacheBytes, Kind kind) const;

    [[nodiscard]] const References& Referred() const noexcept { return references_; }
    [[nodiscard]] const WorkingSet& Touched() const noexcept { return workingSet_; }
    [[nodiscard]] BlockSize Blocks() const noexcept { return blockSize_; }

  private:
    [[nodiscard]] double Hits(std::uint64_t cacheBytes, Kind kind) const;

    BlockSize blockSize_;
    DistanceHistogram distances_;
    References references_;
    WorkingSet workingSet_;
};

}  // namespace sizing
