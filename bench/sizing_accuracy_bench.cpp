// How far sampled miss-ratio curves are off, on loads made up.

#include <algorithm>
#include <random>

#include "appliance.h"
#include "benches.h"
#include "comparison.h"
#include "sizing/curve/exact_curve.h"
#include "sizing/curve/sampled_curve.h"
#include "tests/sizing/curve_error.h"
#include "tests/sizing/workload.h"

namespace bench {
namespace {

constexpr std::uint64_t kLoadBlocks = 400'000;
constexpr int kLoadRequests = 1'500'000;
constexpr std::size_t kRuns = 4;

// The mean error of several samples of the load, and the largest of any at any size: sizing::CurveError.
Cost ErrorsOf(std::size_t number) {
    const sizing::Workload load = sizing::Workloads(kLoadBlocks)[number];
    const sizing::BlockSize blockSize(sizing::kWorkloadBlock);
    std::mt19937_64 random(1);  // NOLINT(cert-msc32-c,cert-msc51-cpp): the same load in every run
    sizing::ExactCurve exact(blockSize);
    std::vector<sizing::SampledCurve> sampled(kRuns, sizing::SampledCurve(blockSize));
    for (int i = 0; i < kLoadRequests; ++i) {
        sizing::Request request = load.next(random);
        exact.Add(request);
        for (sizing::SampledCurve& curve : sampled) {
            curve.Add(request);
            request.volume = sizing::Mix(request.volume);  // another name, and with it other hashes
        }
    }
    const sizing::MissRatioCurve truth = exact.Finish();
    Cost cost;
    for (sizing::SampledCurve& curve : sampled) {
        const sizing::CurveError error = sizing::ErrorOf(curve.Finish(), truth);
        cost.meanError += error.mean / kRuns;
        cost.worstError = std::max(cost.worstError, error.outside);
    }
    return cost;
}

}  // namespace

void RegisterSizingAccuracy() {
    const std::vector<sizing::Workload> loads = sizing::Workloads(kLoadBlocks);
    for (std::size_t number = 0; number < loads.size(); ++number) {
        Comparison comparison;
        comparison.name = "sizing/" + loads[number].name;
        comparison.ours = [number] { return ErrorsOf(number); };
        comparison.baselineName = "the exact curve, off by so much";
        comparison.baseline = [] { return Cost{.meanError = 0.01, .worstError = 0.03}; };
        comparison.pairs = 1;
        comparison.lines = {{kMeanError, 1}, {kWorstError, 1}};
        Register(comparison);
    }
}

}  // namespace bench
