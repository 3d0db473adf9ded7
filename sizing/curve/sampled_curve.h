// An estimate of the miss-ratio curve of LRU, in one pass and constant memory.
#pragma once

#include <vector>

#include "sizing/curve/lru_stack.h"
#include "sizing/curve/miss_ratio_curve.h"

namespace sizing {

// By spatial sampling of a fixed size. A block is sampled when its hash lies below a threshold, so that
// either all references to it are seen or none. At a rate R a distance among the sampled blocks stands for
// one 1/R times as long, and a reference for 1/R references. The threshold begins above all hashes; whenever
// there are more sampled blocks than wanted, the one with the greatest hash is dropped and the threshold
// comes down to it. Those that are left have been seen from their first reference on.
class SampledCurve {
  public:
    static constexpr std::size_t kSamples = 8192;  // a power of two

    explicit SampledCurve(BlockSize blockSize, std::size_t samples = kSamples);

    void Add(const Request& request) {
        std::uint64_t blocks = 0;
        ForEachBlock(request, blockSize_, [&](std::uint64_t key) {
            ++blocks;
            if (key < threshold_) {
                Sample(key, request.kind);
            }
        });
        if (blocks > 0) {
            references_.Of(request.kind) += static_cast<double>(blocks);
        }
    }

    // The end: neither may be called any more.
    MissRatioCurve Finish();

  private:
    void Sample(std::uint64_t key, Kind kind);
    void LowerThreshold();

    BlockSize blockSize_;
    std::size_t samples_;
    std::uint64_t threshold_ = ~std::uint64_t{0};
    double weight_ = 1;                  // 1/R
    std::vector<std::uint64_t> hashes_;  // of the sampled blocks; a heap with the greatest at its top
    LruStack stack_;
    DistanceHistogram distances_{DistanceHistogram::Buckets::kLogarithmic};
    // Each reference by how often its block was touched before: what a block's being sampled or not changes.
    DistanceHistogram influence_{DistanceHistogram::Buckets::kLogarithmic};
    References influenceOfAll_;
    References references_;
    References seen_;  // what the sampled references stand for
};

}  // namespace sizing
