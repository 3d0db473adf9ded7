#include "sizing/curve/sampled_curve.h"

#include <algorithm>
#include <bit>
#include <utility>

namespace sizing {
namespace {

constexpr double kHashes = 0x1p64;
constexpr double kLongestDistance = 9e18;

}  // namespace

SampledCurve::SampledCurve(BlockSize blockSize, std::size_t samples)
    : blockSize_(blockSize), samples_(samples), stack_(std::bit_ceil(samples + 1)) {
    hashes_.reserve(samples + 1);
}

void SampledCurve::Sample(std::uint64_t key, Kind kind, bool isAgain) {
    Part& part = isAgain ? again_ : others_;
    part.sampled.Of(kind) += weight_;
    const LruStack::Touched touched = stack_.Touch(key);
    const double influence = weight_ * touched.touches;
    if (isAgain) {
        influences_.Of(kind) += influence;
    }
    if (touched.touches > 1) {
        const auto distance = static_cast<std::uint64_t>(
            std::min(static_cast<double>(touched.distance) * weight_, kLongestDistance));
        part.distances.Add(distance, kind, weight_);
        if (isAgain) {
            influence_.Add(distance, kind, influence);
        }
        return;
    }
    hashes_.push_back(key);
    std::ranges::push_heap(hashes_);
    if (hashes_.size() > samples_) {
        LowerThreshold();
    }
}

void SampledCurve::LowerThreshold() {
    std::ranges::pop_heap(hashes_);
    threshold_ = hashes_.back();
    hashes_.pop_back();
    stack_.Drop(threshold_);
    weight_ = kHashes / static_cast<double>(threshold_);
}

MissRatioCurve SampledCurve::Finish() {
    References all;
    for (const Kind kind : {Kind::kRead, Kind::kWrite}) {
        // Blocks that were not touched just before get few references each: the sample is short of all of
        // them alike (a ratio estimator).
        const double others = others_.sampled.Of(kind);
        const double factor = others > 0 ? others_.references.Of(kind) / others : 0;
        DistanceHistogram& distances = again_.distances;
        distances.AddScaled(others_.distances, kind, factor);
        // Of the others it is the blocks with most references that are over- or underrepresented: a
        // difference has distances like theirs, in proportion to the covariance of the references of a
        // distance with all of them (a regression estimator). With none of them in the sample it goes to the
        // first bucket.
        const double missing = again_.references.Of(kind) - again_.sampled.Of(kind);
        if (influences_.Of(kind) > 0) {
            distances.AddScaled(influence_, kind, missing / influences_.Of(kind));
        } else {
            distances.Add(0, kind, missing);
        }
        all.Of(kind) = again_.references.Of(kind) + others_.references.Of(kind);
    }
    const double bytes = static_cast<double>(blockSize_.Bytes()) * weight_;
    const WorkingSet workingSet{static_cast<double>(stack_.Blocks()) * bytes,
                                static_cast<double>(stack_.Reused()) * bytes};
    return {blockSize_, std::move(again_.distances), all, workingSet};
}

}  // namespace sizing
