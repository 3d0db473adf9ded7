// How often each reuse distance occurred.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "sizing/request.h"

namespace sizing {

// The reuse distance of a reference: how many other blocks were touched since its block was touched last.
class DistanceHistogram {
  public:
    enum class Buckets {
        kExact,        // one for each distance: memory grows with the longest
        kLogarithmic,  // one for each below 512, then 256 for each power of two: constant memory
    };

    explicit DistanceHistogram(Buckets buckets);

    void Add(std::uint64_t distance, Kind kind, double references) {
        const std::size_t bucket = BucketOf(distance);
        if (bucket >= reads_.size()) {
            reads_.resize(bucket + 1 + bucket / 4);
            writes_.resize(reads_.size());
        }
        Counts(kind)[bucket] += references;
    }

    // Adds so many times what another one, of the same buckets, has of a kind.
    void AddScaled(const DistanceHistogram& other, Kind kind, double factor);

    // Makes each bucket tell what it and those below it hold; no Add after it. Where corrections went below
    // nothing, the sums keep to what they were.
    void Accumulate();
    // How many references of that kind have a distance below `blocks`; within a bucket by its share.
    [[nodiscard]] double Below(std::uint64_t blocks, Kind kind) const;

  private:
    static constexpr unsigned kFineBits = 8;

    [[nodiscard]] std::size_t BucketOf(std::uint64_t distance) const noexcept {
        if (isExact_ || distance < (std::uint64_t{2} << kFineBits)) {
            return distance;
        }
        const unsigned shift = static_cast<unsigned>(std::bit_width(distance)) - 1 - kFineBits;
        return (std::size_t{shift} << kFineBits) + (distance >> shift);
    }

    std::vector<double>& Counts(Kind kind) noexcept { return kind == Kind::kRead ? reads_ : writes_; }
    [[nodiscard]] const std::vector<double>& Counts(Kind kind) const noexcept {
        return kind == Kind::kRead ? reads_ : writes_;
    }

    bool isExact_;
    std::vector<double> reads_;
    std::vector<double> writes_;
};

}  // namespace sizing
