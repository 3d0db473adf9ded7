// The exact miss-ratio curve of LRU in one pass.
#pragma once

#include "sizing/curve/lru_stack.h"
#include "sizing/curve/miss_ratio_curve.h"

namespace sizing {

// By stack distances: LRU caches of all sizes hold the first blocks of one and the same stack, so that the
// distance of each reference tells at once which of them it hits. Takes some 60 bytes of memory for each
// block touched.
class ExactCurve {
  public:
    static constexpr std::uint64_t kMostBlocks = std::uint64_t{1} << 26U;

    explicit ExactCurve(BlockSize blockSize, std::uint64_t mostBlocks = kMostBlocks);

    // Throws Failure when the trace touches more than `mostBlocks`.
    void Add(const Request& request);
    // The end: neither may be called any more.
    MissRatioCurve Finish();

  private:
    BlockSize blockSize_;
    std::uint64_t mostBlocks_;
    LruStack stack_;
    DistanceHistogram distances_{DistanceHistogram::Buckets::kExact};
    References references_;
};

}  // namespace sizing
