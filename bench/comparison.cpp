#include "comparison.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <exception>

namespace bench {
namespace {

using Costs = std::vector<Cost>;

std::vector<double> Values(const Costs& costs, const Measure& measure) {
    std::vector<double> values;
    for (const Cost& cost : costs) {
        values.push_back(cost.*measure.of);
    }
    return values;
}

void Report(benchmark::State& state, const Comparison& comparison, const Costs& ours, const Costs& baseline) {
    for (const Line& line : comparison.lines) {
        const std::vector<double> ourValues = Values(ours, line.measure);
        const std::vector<double> baseValues = Values(baseline, line.measure);
        std::vector<double> ratios;
        std::transform(ourValues.begin(), ourValues.end(), baseValues.begin(), std::back_inserter(ratios),
                       std::divides<>());
        const double ratio = Median(ratios);
        const std::string prefix = line.measure.name;
        state.counters[prefix + ".ours"] = Median(ourValues);
        state.counters[prefix + ".baseline"] = Median(baseValues);
        state.counters[prefix + ".ratio"] =
            comparison.growth == 0 ? ratio : std::log(ratio) / std::log(comparison.growth);
        state.counters[prefix + ".goal"] = line.goal;
    }
    state.SetLabel(comparison.baselineName);
}

void RunPairs(benchmark::State& state, const Comparison& comparison) {
    Costs ours;
    Costs baseline;
    while (state.KeepRunning()) {
        if (ours.size() % 2 == 0) {  // neither side always finds what the other left in the caches
            ours.push_back(comparison.ours());
            baseline.push_back(comparison.baseline());
        } else {
            baseline.push_back(comparison.baseline());
            ours.push_back(comparison.ours());
        }
        state.SetIterationTime(ours.back().wall);
    }
    Report(state, comparison, ours, baseline);
}

}  // namespace

void Register(const Comparison& comparison) {
    benchmark::RegisterBenchmark(comparison.name.c_str(),
                                 [comparison](benchmark::State& state) {
                                     try {
                                         RunPairs(state, comparison);
                                     } catch (const std::exception& error) {
                                         state.SkipWithError(error.what());
                                     }
                                 })
        ->UseManualTime()
        ->Iterations(comparison.pairs);
}

}  // namespace bench
