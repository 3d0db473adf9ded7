// How far sampled miss-ratio curves and miniature simulations are off, on loads made up.

#include <algorithm>
#include <cmath>
#include <functional>
#include <random>
#include <span>

#include "appliance.h"
#include "benches.h"
#include "comparison.h"
#include "sizing/curve/exact_curve.h"
#include "sizing/curve/sampled_curve.h"
#include "sizing/miniature/miniature.h"
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

constexpr int kSimulatedRequests = 600'000;

double HitRatio(const sizing::Simulated& simulated) {
    const sizing::Counters& counters = simulated.counters;
    return static_cast<double>(counters[sizing::Counter::kReadHits] + counters[sizing::Counter::kWriteHits]) /
           static_cast<double>(counters[sizing::Counter::kReads] + counters[sizing::Counter::kWrites]);
}

// Write-back caches of a thirtieth to a third of the load, in miniature and as a whole.
Cost ErrorsOfMiniature(std::size_t number) {
    sizing::SimulationOptions whole;
    whole.mostSlots = ~std::uint64_t{0};
    std::vector<sizing::CacheOptions> caches;
    for (const std::uint64_t part : {30U, 10U, 5U, 3U}) {
        sizing::CacheOptions cache;
        cache.bytes = kLoadBlocks / part * sizing::kWorkloadBlock;
        cache.blockSize = sizing::BlockSize(sizing::kWorkloadBlock);
        cache.knobs[sizing::Knob::kReclaimPolicy] = sizing::kReclaimLru;
        caches.push_back(cache);
    }
    const auto simulate = [&](const sizing::SimulationOptions& options) {
        std::mt19937_64 random(1);  // NOLINT(cert-msc32-c,cert-msc51-cpp): the same load in every run
        const sizing::Workload load = sizing::Workloads(kLoadBlocks)[number];
        std::vector<sizing::Request> batch(1000);
        int left = kSimulatedRequests;
        return sizing::SimulateCaches(caches, options, [&] {
            std::ranges::generate(batch, [&] { return load.next(random); });
            left -= static_cast<int>(batch.size());
            return left < 0 ? std::span<const sizing::Request>() : std::span<const sizing::Request>(batch);
        });
    };
    const auto truth = simulate(whole);
    Cost cost;
    for (std::uint64_t seed = 0; seed < kRuns; ++seed) {
        sizing::SimulationOptions sampled;
        sampled.mostSlots = 8192;
        sampled.seed = seed;
        const auto told = simulate(sampled);
        for (std::size_t i = 0; i < caches.size(); ++i) {
            const double error = std::abs(HitRatio(told[i]) - HitRatio(truth[i]));
            cost.meanError += error / static_cast<double>(kRuns * caches.size());
            cost.worstError = std::max(cost.worstError, error);
        }
    }
    return cost;
}

void Compare(const std::string& name, std::function<Cost()> ours, const std::string& baseline) {
    Comparison comparison;
    comparison.name = name;
    comparison.ours = std::move(ours);
    comparison.baselineName = baseline;
    comparison.baseline = [] { return Cost{.meanError = 0.01, .worstError = 0.03}; };
    comparison.pairs = 1;
    comparison.lines = {{kMeanError, 1}, {kWorstError, 1}};
    Register(comparison);
}

}  // namespace

void RegisterSizingAccuracy() {
    const std::vector<sizing::Workload> loads = sizing::Workloads(kLoadBlocks);
    for (std::size_t number = 0; number < loads.size(); ++number) {
        Compare(
            "sizing/" + loads[number].name, [number] { return ErrorsOf(number); },
            "the exact curve, off by so much");
        Compare(
            "miniature/" + loads[number].name, [number] { return ErrorsOfMiniature(number); },
            "the whole cache, off by so much");
    }
}

}  // namespace bench
