// An estimate of the miss-ratio curve of LRU, in one pass and constant memory.
#pragma once

#include <cstdint>
#include <utility>
#include <vector>

#include "sizing/curve/lru_stack.h"
#include "sizing/curve/miss_ratio_curve.h"

namespace sizing {

// Tells whether a block was touched just before: whether it was the last one of those that share its slot.
// Exact enough to part references in two, and a look at one place of a small table.
class JustBefore {
  public:
    bool Touch(std::uint64_t key) noexcept {
        std::uint16_t& slot = tags_[key % kSlots];
        const auto tag = static_cast<std::uint16_t>(key >> 32U);
        return std::exchange(slot, tag) == tag;
    }

  private:
    static constexpr std::size_t kSlots =
        16384;  // of two bytes: they stay in the nearest cache of the processor
    std::vector<std::uint16_t> tags_ = std::vector<std::uint16_t>(kSlots);
};

// By spatial sampling of a fixed size. A block is sampled when its hash lies below a threshold, so that
// either all references to it are seen or none. At a rate R a distance among the sampled blocks stands for
// one 1/R times as long, and a reference for 1/R references. The threshold begins above all hashes; whenever
// there are more sampled blocks than wanted, the one with the greatest hash is dropped and the threshold
// comes down to it. Those that are left have been seen from their first reference on.
//
// The sample speaks for more references than there were, or for fewer, as few blocks get many of them and may
// be in it or not. Commonly the difference is put into the first bucket of the distances. Here references are
// parted by whether their block was touched just before, how many there were of either part is counted, and
// each part of the sample is corrected by its own difference (post-stratification): see Finish.
class SampledCurve {
  public:
    static constexpr std::size_t kSamples = 8192;

    explicit SampledCurve(BlockSize blockSize, std::size_t samples = kSamples);

    void Add(const Request& request) {
        std::uint64_t blocks = 0;
        std::uint64_t again = 0;  // those of them that were touched just before
        ForEachBlock(request, blockSize_, [&](std::uint64_t key) {
            const bool isAgain = justBefore_.Touch(key);
            ++blocks;
            again += isAgain ? 1 : 0;
            if (key < threshold_) {
                Sample(key, request.kind, isAgain);
            }
        });
        if (blocks > 0) {
            again_.references.Of(request.kind) += static_cast<double>(again);
            others_.references.Of(request.kind) += static_cast<double>(blocks - again);
        }
    }

    // The end: neither may be called any more.
    MissRatioCurve Finish();

  private:
    // Either part of the references.
    struct Part {
        DistanceHistogram distances{DistanceHistogram::Buckets::kLogarithmic};  // of the sampled ones
        References sampled;                                                     // what those stand for
        References references;                                                  // how many there were
    };

    void Sample(std::uint64_t key, Kind kind, bool isAgain);
    void LowerThreshold();

    BlockSize blockSize_;
    std::size_t samples_;
    std::uint64_t threshold_ = ~std::uint64_t{0};
    double weight_ = 1;                  // 1/R
    std::vector<std::uint64_t> hashes_;  // of the sampled blocks; a heap with the greatest at its top
    LruStack stack_;
    JustBefore justBefore_;
    Part again_;
    Part others_;
    // Of the part again_, each reference times how often its block was touched before.
    DistanceHistogram influence_{DistanceHistogram::Buckets::kLogarithmic};
    References influences_;
};

}  // namespace sizing
