#include "sizing/curve/miss_ratio_curve.h"

#include <algorithm>
#include <utility>

namespace sizing {
namespace {

// Samples may speak for more hits than there were references.
double MissShare(double hits, double references) {
    return references <= 0 ? 0 : std::clamp(1 - hits / references, 0.0, 1.0);
}

}  // namespace

MissRatioCurve::MissRatioCurve(BlockSize blockSize, DistanceHistogram distances, References references,
                               WorkingSet workingSet)
    : blockSize_(blockSize),
      distances_(std::move(distances)),
      references_(references),
      workingSet_(workingSet) {
    distances_.Accumulate();
}

double MissRatioCurve::Hits(std::uint64_t cacheBytes, Kind kind) const {
    return distances_.Below(cacheBytes >> blockSize_.Shift(), kind);
}

double MissRatioCurve::MissRatio(std::uint64_t cacheBytes) const {
    return MissShare(Hits(cacheBytes, Kind::kRead) + Hits(cacheBytes, Kind::kWrite),
                     references_.reads + references_.writes);
}

double MissRatioCurve::MissRatio(std::uint64_t cacheBytes, Kind kind) const {
    return MissShare(Hits(cacheBytes, kind), references_.Of(kind));
}

}  // namespace sizing
