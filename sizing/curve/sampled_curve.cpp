#include "sizing/curve/sampled_curve.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <utility>

namespace sizing {
namespace {

const double kHashes = std::ldexp(1.0, 64);
constexpr double kLongestDistance = 9e18;

}  // namespace

SampledCurve::SampledCurve(BlockSize blockSize, std::size_t samples)
    : blockSize_(blockSize), samples_(samples), stack_(std::bit_ceil(samples + 1)) {
    hashes_.reserve(samples + 1);
}

void SampledCurve::Sample(std::uint64_t key, Kind kind) {
    seen_.Of(kind) += weight_;
    const LruStack::Touched touched = stack_.Touch(key);
    const double influence = weight_ * touched.touches;
    influenceOfAll_.Of(kind) += influence;
    if (touched.touches > 1) {
        const auto distance = static_cast<std::uint64_t>(
            std::min(static_cast<double>(touched.distance) * weight_, kLongestDistance));
        distances_.Add(distance, kind, weight_);
        influence_.Add(distance, kind, influence);
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
    // How many references there were is known, and the sample may speak for more or for fewer: mostly as
    // blocks in frequent use are over- or underrepresented. Commonly the difference is put into the first
    // bucket, as if all of it were hits in the smallest cache. Here it goes to where those blocks have their
    // distances: in proportion to the covariance of the references of a distance with all references (a
    // regression estimator). On loads whose references are spread wide, that halves the error and more.
    for (const Kind kind : {Kind::kRead, Kind::kWrite}) {
        const double missing = references_.Of(kind) - seen_.Of(kind);
        if (influenceOfAll_.Of(kind) > 0) {
            distances_.AddScaled(influence_, kind, missing / influenceOfAll_.Of(kind));
        } else {
            distances_.Add(0, kind, missing);
        }
    }
    const double bytes = static_cast<double>(blockSize_.Bytes()) * weight_;
    const WorkingSet workingSet{static_cast<double>(stack_.Blocks()) * bytes,
                                static_cast<double>(stack_.Reused()) * bytes};
    return {blockSize_, std::move(distances_), references_, workingSet};
}

}  // namespace sizing
