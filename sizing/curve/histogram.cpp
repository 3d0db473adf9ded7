#include "sizing/curve/histogram.h"

#include <algorithm>
#include <limits>

namespace sizing {

DistanceHistogram::DistanceHistogram(Buckets buckets) : isExact_(buckets == Buckets::kExact) {
    if (!isExact_) {
        const std::size_t most = BucketOf(std::numeric_limits<std::uint64_t>::max()) + 1;
        reads_.resize(most);
        writes_.resize(most);
    }
}

void DistanceHistogram::AddScaled(const DistanceHistogram& other, Kind kind, double factor) {
    std::vector<double>& counts = Counts(kind);
    std::ranges::transform(counts, other.Counts(kind), counts.begin(),
                           [&](double count, double addend) { return count + factor * addend; });
}

void DistanceHistogram::Accumulate() {
    for (std::vector<double>* counts : {&reads_, &writes_}) {
        double sum = 0;
        double most = 0;
        for (double& count : *counts) {
            sum += count;
            most = std::max(most, sum);
            count = most;
        }
    }
}

double DistanceHistogram::Below(std::uint64_t blocks, Kind kind) const {
    const std::vector<double>& sums = Counts(kind);
    if (blocks == 0 || sums.empty()) {
        return 0;
    }
    const std::size_t bucket = BucketOf(blocks);
    if (bucket >= sums.size()) {
        return sums.back();
    }
    const double below = bucket == 0 ? 0 : sums[bucket - 1];
    if (isExact_ || blocks < (std::uint64_t{2} << kFineBits)) {
        return below;
    }
    const unsigned shift = static_cast<unsigned>(std::bit_width(blocks)) - 1 - kFineBits;
    const std::uint64_t width = std::uint64_t{1} << shift;
    const double share = static_cast<double>(blocks & (width - 1)) / static_cast<double>(width);
    return below + share * (sums[bucket] - below);
}

}  // namespace sizing
