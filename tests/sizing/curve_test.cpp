// The exact curve: against a simulation, and where it is known without one.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <list>
#include <optional>

#include "simulation/seed.h"
#include "sizing/curve/exact_curve.h"
#include "sizing/curve/sampled_curve.h"
#include "tests/sizing/workload.h"

namespace sizing {
namespace {

constexpr std::uint64_t kBlock = kWorkloadBlock;

// LRU of any size as a list, the latest block in front.
class NaiveStack {
  public:
    struct Block {
        std::uint64_t key;
        bool isReused;
    };

    std::optional<std::uint64_t> Touch(std::uint64_t key) {
        const auto found = std::ranges::find(blocks_, key, &Block::key);
        if (found == blocks_.end()) {
            blocks_.push_front({key, false});
            return std::nullopt;
        }
        const auto distance = static_cast<std::uint64_t>(std::distance(blocks_.begin(), found));
        found->isReused = true;
        blocks_.splice(blocks_.begin(), blocks_, found);
        return distance;
    }
    void Drop(std::uint64_t key) {
        blocks_.remove_if([&](const Block& block) { return block.key == key; });
    }
    std::uint64_t Reused() const {
        return static_cast<std::uint64_t>(std::ranges::count(blocks_, true, &Block::isReused));
    }
    std::uint64_t Blocks() const { return blocks_.size(); }
    std::uint64_t Latest() const { return blocks_.front().key; }

  private:
    std::list<Block> blocks_;
};

// A trace of a few volumes and blocks in requests of some length, anywhere on the bytes.
std::vector<Request> SmallTrace(std::mt19937_64& random) {
    const std::uint64_t volumes = 1 + random() % 3;
    const std::uint64_t blocks = 1 + random() % 60;
    std::vector<Request> trace(random() % 150);
    for (Request& request : trace) {
        request.volume = TextKey(std::to_string(random() % volumes));
        request.offset = random() % (blocks * kBlock);
        request.length = random() % (random() % 4 == 0 ? 5 * kBlock : kBlock);
        request.kind = static_cast<Kind>(random() % kKinds);
    }
    return trace;
}

struct Hits {
    std::vector<double> below = std::vector<double>(300);  // by the size of the cache in blocks
    double references = 0;

    double MissRatio(std::size_t size) const { return references == 0 ? 0 : 1 - below[size] / references; }
};

// Splits requests byte by byte.
void Simulate(const Request& request, NaiveStack& stack, Hits& hits) {
    if (request.kind != Kind::kRead && request.kind != Kind::kWrite) {
        return;
    }
    std::optional<std::uint64_t> last;
    for (std::uint64_t byte = request.offset; byte < request.offset + request.length; byte += 512) {
        for (const std::uint64_t at : {byte, std::min(byte + 511, request.offset + request.length - 1)}) {
            const std::uint64_t block = at / kBlock;
            if (block == last) {
                continue;
            }
            last = block;
            ++hits.references;
            const auto distance = stack.Touch(BlockKey(request.volume, block));
            for (std::size_t size = 0; distance && size < hits.below.size(); ++size) {
                hits.below[size] += *distance < size ? 1 : 0;
            }
        }
    }
}

TEST(ExactCurve, EqualsASimulationOfEachSize) {
    std::mt19937_64 random(FirstSeed());
    for (int round = 0; round < 3'000; ++round) {
        ExactCurve exact{BlockSize(kBlock)};
        SampledCurve sampled{
            BlockSize(kBlock)};  // which has more samples than there are blocks: exact as well
        NaiveStack stack;
        Hits reads;
        Hits writes;
        for (const Request& request : SmallTrace(random)) {
            exact.Add(request);
            sampled.Add(request);
            Simulate(request, stack, request.kind == Kind::kRead ? reads : writes);
        }
        for (const MissRatioCurve& curve : {exact.Finish(), sampled.Finish()}) {
            ASSERT_EQ(curve.Touched().touched, static_cast<double>(stack.Blocks() * kBlock));
            ASSERT_EQ(curve.Touched().touchedTwice, static_cast<double>(stack.Reused() * kBlock));
            for (std::size_t size = 0; size < reads.below.size(); ++size) {
                const std::uint64_t bytes = size * kBlock + random() % kBlock;
                ASSERT_NEAR(curve.MissRatio(bytes, Kind::kRead), reads.MissRatio(size), 1e-12);
                ASSERT_NEAR(curve.MissRatio(bytes, Kind::kWrite), writes.MissRatio(size), 1e-12);
            }
        }
    }
}

// Long enough that times are compacted and the table grows and closes its gaps, over and over.
TEST(LruStack, EqualsAListOverTouchesAndDrops) {
    std::mt19937_64 random(FirstSeed());
    for (const std::uint64_t keys : {1U, 20U, 700U}) {
        LruStack stack(4);
        NaiveStack naive;
        for (int step = 0; step < 20'000; ++step) {
            // Keys like hashes, but of which many want the same place.
            const std::uint64_t key = (1 + random() % keys) * (random() % 2 == 0 ? 1 : 1024);
            const LruStack::Touched touched = stack.Touch(key);
            const auto distance = naive.Touch(key);
            ASSERT_EQ(touched.touches > 1, distance.has_value());
            ASSERT_EQ(touched.distance, distance.value_or(0));
            if (random() % 5 == 0) {
                stack.Drop(key);
                naive.Drop(key);
            }
            ASSERT_EQ(stack.Blocks(), naive.Blocks());
        }
        EXPECT_EQ(stack.Reused(), naive.Reused());
    }
}

TEST(ExactCurve, ALoopHitsNothingOrAll) {
    constexpr std::uint64_t kBlocks = 5'000;
    constexpr std::uint64_t kRounds = 20;
    ExactCurve curve{BlockSize(kBlock)};
    std::mt19937_64 random(1);
    for (std::uint64_t i = 0; i < kBlocks * kRounds; ++i) {
        curve.Add(BlockRequest(random, i % kBlocks));
    }
    const MissRatioCurve finished = curve.Finish();
    EXPECT_EQ(finished.MissRatio((kBlocks - 1) * kBlock), 1);
    EXPECT_EQ(finished.MissRatio(kBlocks * kBlock - 1), 1);
    EXPECT_NEAR(finished.MissRatio(kBlocks * kBlock), 1.0 / kRounds, 1e-12);
    EXPECT_NEAR(finished.MissRatio(~std::uint64_t{0}), 1.0 / kRounds, 1e-12);
}

// The approximation by a characteristic time t: in a cache of c blocks block i is there with a probability of
// 1 - exp(-p[i] t), where t is such that these add up to c.
double HitRatioOfIndependentDraws(const Zipf& zipf, std::size_t blocks, double cached) {
    double low = 0;
    double high = 1e12;
    double hits = 0;
    for (int step = 0; step < 100; ++step) {
        const double time = (low + high) / 2;
        double present = 0;
        hits = 0;
        for (std::size_t i = 0; i < blocks; ++i) {
            const double chance = zipf.Probability(i);
            present += -std::expm1(-chance * time);
            hits += chance * -std::expm1(-chance * time);
        }
        (present < cached ? low : high) = time;
    }
    return hits;
}

TEST(ExactCurve, IndependentDrawsFollowTheCharacteristicTime) {
    constexpr std::size_t kBlocks = 1'000;
    for (const double skew : {0.0, 0.7, 1.0, 1.2}) {
        const Zipf zipf(kBlocks, skew);
        std::mt19937_64 random(1);
        ExactCurve curve{BlockSize(kBlock)};
        for (int i = 0; i < 300'000; ++i) {
            curve.Add(BlockRequest(random, zipf(random)));
        }
        const MissRatioCurve finished = curve.Finish();
        for (const std::size_t cached : {10U, 50U, 100U, 300U, 600U, 900U}) {
            EXPECT_NEAR(1 - finished.MissRatio(cached * kBlock),
                        HitRatioOfIndependentDraws(zipf, kBlocks, static_cast<double>(cached)), 0.01)
                << skew << ", " << cached;
        }
    }
}

}  // namespace
}  // namespace sizing
