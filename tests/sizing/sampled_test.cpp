// The sampled curve against the exact one.
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "sizing/curve/exact_curve.h"
#include "sizing/curve/sampled_curve.h"
#include "tests/sizing/curve_error.h"
#include "tests/sizing/workload.h"

namespace sizing {
namespace {

struct Curves {
    MissRatioCurve exact;
    std::vector<MissRatioCurve> sampled;  // each with a sample of its own
};

Curves CurvesOf(const Workload& load, int requests, std::size_t samples, std::size_t runs) {
    std::mt19937_64 random(1);
    ExactCurve exact{BlockSize(kWorkloadBlock)};
    std::vector<SampledCurve> sampled(runs, SampledCurve{BlockSize(kWorkloadBlock), samples});
    for (int i = 0; i < requests; ++i) {
        Request request = load.next(random);
        exact.Add(request);
        for (SampledCurve& curve : sampled) {
            curve.Add(request);
            request.volume = Mix(request.volume);  // another name, and with it other hashes
        }
    }
    Curves curves{exact.Finish(), {}};
    std::ranges::transform(sampled, std::back_inserter(curves.sampled), &SampledCurve::Finish);
    return curves;
}

// As the benchmark does with more blocks, requests and samples of them.
TEST(SampledCurve, IsNearTheExactOne) {
    constexpr std::uint64_t kBlocks = 50'000;
    constexpr std::size_t kRuns = 2;
    double sum = 0;
    const std::vector<Workload> loads = Workloads(kBlocks);
    for (const Workload& load : loads) {
        const Curves curves = CurvesOf(load, 150'000, SampledCurve::kSamples, kRuns);
        for (const MissRatioCurve& sampled : curves.sampled) {
            const CurveError error = ErrorOf(sampled, curves.exact);
            sum += error.mean;
            EXPECT_LE(error.mean, 0.03) << load.name;
            EXPECT_LE(error.outside, 0.05) << load.name;
            EXPECT_EQ(sampled.Referred().reads, curves.exact.Referred().reads);
            EXPECT_EQ(sampled.Referred().writes, curves.exact.Referred().writes);
            const WorkingSet& truth = curves.exact.Touched();
            EXPECT_NEAR(sampled.Touched().touched / truth.touched, 1, 0.06) << load.name;
            EXPECT_NEAR(sampled.Touched().touchedTwice / truth.touchedTwice, 1, 0.06) << load.name;
        }
    }
    EXPECT_LE(sum / static_cast<double>(loads.size() * kRuns), 0.01);
}

// Few samples are worse, but never out of the range of a ratio, and the curve never rises.
TEST(SampledCurve, IsACurveWithHowFewSamplesEver) {
    for (const std::size_t samples : {1U, 2U, 16U, 128U}) {
        for (const Workload& load : Workloads(10'000)) {
            const MissRatioCurve sampled = CurvesOf(load, 20'000, samples, 1).sampled.front();
            for (const Kind kind : {Kind::kRead, Kind::kWrite}) {
                double last = 1;
                for (std::uint64_t size = 0; size < 20'000 * kWorkloadBlock; size += 37 * kWorkloadBlock) {
                    const double ratio = sampled.MissRatio(size, kind);
                    ASSERT_GE(ratio, 0);
                    ASSERT_LE(ratio, last + 1e-12) << load.name;
                    last = ratio;
                }
            }
        }
    }
}

TEST(SampledCurve, NothingMissesNothing) {
    const MissRatioCurve empty = SampledCurve(BlockSize(kWorkloadBlock)).Finish();
    EXPECT_EQ(empty.MissRatio(0), 0);
    EXPECT_EQ(empty.MissRatio(~std::uint64_t{0}), 0);
    EXPECT_EQ(empty.Touched().touched, 0);
}

}  // namespace
}  // namespace sizing
