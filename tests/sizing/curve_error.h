// How far an estimated curve is off.
#pragma once

#include <algorithm>
#include <cmath>

#include "sizing/curve/miss_ratio_curve.h"

namespace sizing {

struct CurveError {
    double mean = 0;     // of the absolute errors
    double largest = 0;  // of them
    // The largest by which the estimate lies outside of what caches 5% smaller and larger miss: where a curve
    // falls like a wall, a loop's, nobody could tell its place better than a sample of this size knows
    // lengths.
    double outside = 0;
};

// At 100 cache sizes from 1% to 100% of the working set, in even steps of their logarithm.
inline CurveError ErrorOf(const MissRatioCurve& estimate, const MissRatioCurve& exact) {
    constexpr int kSizes = 100;
    constexpr double kSlack = 0.05;
    CurveError error;
    for (int i = 0; i < kSizes; ++i) {
        const double size = exact.Touched().touched * std::pow(100.0, (i + 0.5) / kSizes - 1);
        const auto at = [&](double bytes) { return exact.MissRatio(static_cast<std::uint64_t>(bytes)); };
        const double estimated = estimate.MissRatio(static_cast<std::uint64_t>(size));
        const double off = std::abs(estimated - at(size));
        error.mean += off / kSizes;
        error.largest = std::max(error.largest, off);
        error.outside = std::max(
            {error.outside, estimated - at(size * (1 - kSlack)), at(size * (1 + kSlack)) - estimated});
    }
    return error;
}

}  // namespace sizing
