// Which cache is advised for loads of which the right one is known.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "simulation/seed.h"
#include "sizing/advice/advice.h"
#include "support/private_folder.h"
#include "tests/sizing/workload.h"

namespace sizing {
namespace {

constexpr std::uint64_t kBlock = std::uint64_t{64} << 10U;
constexpr std::uint64_t kMiB = std::uint64_t{1} << 20U;

// Number, kind, blocks' number and time of the i-th request.
using Load = std::function<std::pair<char, std::uint64_t>(std::mt19937_64&, std::uint64_t)>;

std::string TraceOf(const Load& load, std::uint64_t requests) {
    std::mt19937_64 random(FirstSeed());
    std::string text;
    for (std::uint64_t i = 0; i < requests; ++i) {
        const auto [kind, block] = load(random, i);
        text += "17," + std::string(1, kind) + "," + std::to_string(block * kBlock) + "," +
                std::to_string(kBlock) + "," + std::to_string(1'000'000 + i * 50'000) + "\n";
    }
    return text;
}

Advice AdviceFor(const Load& load, const AdviceOptions& options = {}, std::uint64_t requests = 30'000) {
    const PrivateFolder folder;
    WriteText(folder / "trace.csv", TraceOf(load, requests));
    AdviceOptions as = options;
    as.read.format = Format::kAlibaba;
    return AdviseOnTrace({folder / "trace.csv"}, as);
}

// Nine of ten go to so many hot blocks, the rest anywhere in 64 GiB.
Load Hot(std::uint64_t blocks, int writesOfTen) {
    return [=](std::mt19937_64& random, std::uint64_t) {
        const std::uint64_t block = random() % 10 < 9 ? random() % blocks : random() % (1 << 20);
        return std::pair(static_cast<int>(random() % 10) < writesOfTen ? 'W' : 'R', block);
    };
}

TEST(Advice, ChoosesWhatTheLoadWants) {
    const Load scan = [](std::mt19937_64&, std::uint64_t i) { return std::pair('R', i); };
    const Load loop = [](std::mt19937_64&, std::uint64_t i) { return std::pair('R', i % 3000); };
    const Load writtenOnceReadNever = [](std::mt19937_64&, std::uint64_t i) { return std::pair('W', i); };
    const struct {
        const char* name;
        Load load;
        Verdict verdict;
        std::optional<WriteMode> mode;
        std::uint64_t bytes = 0;
    } cases[] = {
        {"a scan", scan, Verdict::kNothingReused, {}},
        {"a backup's target", writtenOnceReadNever, Verdict::kNothingReused, {}},
        {"a loop wants all of it", loop, Verdict::kHelps, WriteMode::kThru, 256 * kMiB},
        {"hot reads need no write-back", Hot(500, 0), Verdict::kHelps, WriteMode::kThru},
        {"hot writes do", Hot(500, 8), Verdict::kHelps, WriteMode::kBack},
    };
    for (const auto& [name, load, verdict, mode, bytes] : cases) {
        const Advice advice = AdviceFor(load);
        EXPECT_EQ(advice.verdict, verdict) << name;
        if (verdict != Verdict::kHelps) {
            continue;
        }
        EXPECT_EQ(advice.chosen.mode, mode) << name;
        if (bytes > 0) {
            EXPECT_EQ(advice.chosen.bytes, bytes) << name;
        }
        double most = 0;
        for (const CacheOutlook& outlook : advice.ladder) {
            most = std::max(most, outlook.Spared());
        }
        EXPECT_GE(advice.chosen.Spared(), 0.9 * most) << name;
    }
}

TEST(Advice, TellsOfTheCacheThatIsAskedAbout) {
    for (const std::uint64_t bytes : {64 * kMiB, 100 * kMiB}) {
        AdviceOptions options;
        options.bytes = bytes;
        options.mode = WriteMode::kThru;
        options.samples = 0;
        const Advice advice = AdviceFor(Hot(500, 5), options, 5'000);
        EXPECT_EQ(advice.chosen.bytes, bytes);
        EXPECT_EQ(advice.chosen.mode, WriteMode::kThru);
        EXPECT_EQ(advice.chosen.simulated.simulatedShare, 1);
        EXPECT_EQ(std::ranges::count(advice.ladder, bytes, &CacheOutlook::bytes), 1);
        EXPECT_TRUE(advice.others.empty());
    }
}

// What only write-back does: a block written a hundred times goes to the volume once.
TEST(Advice, TellsWhatWriteBackAbsorbsAndHowLongItLies) {
    AdviceOptions options;
    options.mode = WriteMode::kBack;
    options.knobs[Knob::kDirtyThreshPct] = 100;
    const Load load = [](std::mt19937_64&, std::uint64_t i) { return std::pair('W', i % 100); };
    const Advice advice = AdviceFor(load, options, 10'000);
    EXPECT_NEAR(advice.ladder.back().Absorbed(), 0.99, 0.005);
    EXPECT_NEAR(advice.ladder.back().Spared(), 0.99, 0.005);
    EXPECT_NEAR(advice.ladder.back().simulated.meanDirtySeconds, 10'000 * 0.05, 10);
    EXPECT_NEAR(advice.ladder.back().SsdBytes(advice.BytesOfWrite(), kBlock), 10'000.0 * kBlock,
                1.0 * kBlock);
    EXPECT_NEAR(advice.Days() * 86400, 9'999 * 0.05, 0.1);
}

TEST(Advice, FindsTheKnee) {
    const auto kneeOf = [](const Load& load) { return AdviceFor(load).knee; };
    const Load loop = [](std::mt19937_64&, std::uint64_t i) { return std::pair('R', i % 3000); };
    EXPECT_NEAR(static_cast<double>(kneeOf(loop)), 3000.0 * kBlock, 3000.0 * kBlock / 20);
    // Hot blocks have been touched again by the time some hundreds of cold ones came between.
    EXPECT_LT(kneeOf(Hot(500, 0)), 2000 * kBlock);
    EXPECT_GT(kneeOf(Hot(500, 0)), 400 * kBlock);
}

TEST(Advice, IsGivenForATraceWithoutRequestsToo) {
    const Advice advice =
        AdviceFor([](std::mt19937_64&, std::uint64_t) { return std::pair('R', std::uint64_t{0}); }, {}, 1);
    EXPECT_EQ(advice.verdict, Verdict::kNothingReused);
    EXPECT_EQ(advice.Days(), 0);
}

}  // namespace
}  // namespace sizing
