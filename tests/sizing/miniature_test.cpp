// The model of the cache, run on traces: against a plain list, where it is known without a simulation, and in
// miniature.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>

#include "simulation/seed.h"
#include "sizing/curve/exact_curve.h"
#include "sizing/failure.h"
#include "tests/sizing/naive_cache.h"
#include "tests/sizing/workload.h"

namespace sizing {
namespace {

constexpr std::uint64_t kBlock = kWorkloadBlock;
constexpr std::uint64_t kSecond = 1'000'000'000;
constexpr std::uint64_t kSet = SlotMap::kAssociativity;

using Knobs = std::vector<std::pair<Knob, std::int32_t>>;

CacheOptions Cache(std::uint64_t slots, WriteMode mode, const Knobs& knobs = {}) {
    CacheOptions cache;
    cache.bytes = slots * kBlock;
    cache.blockSize = BlockSize(kBlock);
    cache.mode = mode;
    for (const auto& [knob, value] : knobs) {
        cache.knobs[knob] = value;
    }
    return cache;
}

Simulated Play(const CacheOptions& cache, const std::vector<Request>& trace,
               const SimulationOptions& options = {}) {
    bool isRead = false;
    return SimulateCaches(
               {cache}, options,
               [&] { return std::exchange(isRead, true) ? std::span<const Request>() : std::span(trace); })
        .front();
}

Request At(std::uint64_t block, Kind kind, std::uint64_t blocks = 1, std::uint64_t time = 0) {
    return {time, 1, block * kBlock, blocks * kBlock, kind};
}

std::vector<Request> Loop(std::uint64_t blocks, int rounds, Kind kind) {
    std::vector<Request> trace;
    for (int round = 0; round < rounds; ++round) {
        for (std::uint64_t block = 0; block < blocks; ++block) {
            trace.push_back(At(block, kind));
        }
    }
    return trace;
}

// On a few blocks of a few sets, in part or whole.
std::vector<Request> SmallTrace(std::mt19937_64& random, std::uint64_t longest) {
    std::vector<Request> trace(random() % 200);
    for (Request& request : trace) {
        request.volume = 1;
        const std::uint64_t block = random() % 6 * 512 + random() % 9;
        request.offset = block * kBlock + (random() % 2 == 0 ? 512 : 0);
        request.length = random() % 2 == 0 ? kBlock : 512 + random() % longest;
        const std::uint64_t kind = random() % 20;
        request.kind = kind == 0 ? Kind::kDiscard : kind < 10 ? Kind::kRead : Kind::kWrite;
    }
    return trace;
}

TEST(Model, EqualsAPlainList) {
    std::mt19937_64 random(FirstSeed());
    for (int round = 0; round < 3'000; ++round) {
        const auto mode = static_cast<WriteMode>(random() % 3);
        const std::uint64_t sets = 1 + random() % 3;
        const std::uint64_t slotsOfASet = 2 + random() % 10;
        CacheOptions cache = Cache(sets * slotsOfASet, mode,
                                   {{Knob::kReclaimPolicy, random() % 2 == 0 ? kReclaimLru : kReclaimFifo},
                                    {Knob::kDirtyThreshPct, static_cast<std::int32_t>(random() % 101)}});
        cache.associativity = slotsOfASet;
        NaiveCache naive(cache, slotsOfASet, sets);
        const std::vector<Request> trace = SmallTrace(random, 5 * kBlock);
        for (const Request& request : trace) {
            naive.Add(request);
        }
        const Simulated simulated = Play(cache, trace);
        Counters counters = simulated.counters;
        counters.Set("metadata_batch", 0);
        counters.Set("metadata_ssd_writes", 0);
        ASSERT_EQ(counters.Format(WriteMode::kBack), naive.Counts().Format(WriteMode::kBack))
            << "round " << round << ", mode " << static_cast<int>(mode);
        ASSERT_EQ(simulated.dirtyBlocks, static_cast<double>(naive.Dirty()));
    }
}

// Whole blocks in one large set: what stack distances tell.
TEST(Model, WithOneSetEqualsTheExactCurve) {
    std::mt19937_64 random(FirstSeed());
    for (const Workload& load : Workloads(3'000)) {
        ExactCurve exact{BlockSize(kBlock)};
        std::vector<Request> trace(8'000);
        for (Request& request : trace) {
            request = load.next(random);
            exact.Add(request);
        }
        const MissRatioCurve curve = exact.Finish();
        for (const std::uint64_t slots : {10U, 300U, 1'500U, 2'999U}) {
            CacheOptions cache = Cache(slots, WriteMode::kThru, {{Knob::kReclaimPolicy, kReclaimLru}});
            cache.associativity = slots;
            const Simulated simulated = Play(cache, trace);
            const double hits = static_cast<double>(simulated.counters[Counter::kReadHits]);
            EXPECT_NEAR(hits / curve.Referred().reads, 1 - curve.MissRatio(cache.bytes, Kind::kRead), 1e-12)
                << load.name << ", " << slots;
        }
    }
}

TEST(Model, LoopsHitAllOrNothing) {
    constexpr std::uint64_t kSlots = 4 * kSet;
    struct Case {
        std::int32_t policy;
        std::uint64_t blocks;
        std::uint64_t hits;
    };
    // One block too many makes one of the sets miss all of its blocks.
    for (const Case& one : {Case{kReclaimLru, kSlots, kSlots}, Case{kReclaimFifo, kSlots, kSlots},
                            Case{kReclaimLru, kSlots + 1, 3 * kSet}, Case{kReclaimFifo, kSlots + 1, 3 * kSet},
                            Case{kReclaimLru, 2 * kSlots, 0}}) {
        const auto cache = Cache(kSlots, WriteMode::kThru, {{Knob::kReclaimPolicy, one.policy}});
        const Simulated simulated = Play(cache, Loop(one.blocks, 3, Kind::kRead));
        EXPECT_EQ(simulated.counters[Counter::kReadHits], 2 * one.hits) << one.policy << ", " << one.blocks;
    }
}

TEST(Model, WritesBackWhatASetHasTooMuch) {
    constexpr std::uint64_t kSlots = 4 * kSet;
    constexpr std::uint64_t kShare = kSet / 5;
    struct Case {
        const char* what;
        Knobs knobs;
        std::uint64_t blocks;
        std::uint64_t cleanings;
    };
    const Case cases[] = {
        {"within the share of each set", {}, kShare, 0},
        {"one set beyond its share, the others empty", {}, kSet, kSet - kShare},
        {"all sets", {}, kSlots, kSlots - 4 * kShare},
        {"none at all", {{Knob::kMaxCleanIosTotal, 0}}, kSlots, 0},
        {"none in a set", {{Knob::kMaxCleanIosSet, 0}}, kSlots, 0},
        {"all may be dirty", {{Knob::kDirtyThreshPct, 100}}, kSlots, 0},
        {"nothing may be", {{Knob::kDirtyThreshPct, 0}}, kSlots, kSlots},
    };
    for (const Case& one : cases) {
        const Simulated simulated =
            Play(Cache(kSlots, WriteMode::kBack, one.knobs), Loop(one.blocks, 1, Kind::kWrite));
        EXPECT_EQ(simulated.counters[Counter::kCleanings], one.cleanings) << one.what;
        EXPECT_EQ(simulated.counters[Counter::kDiskWrites], one.cleanings) << one.what;
        EXPECT_EQ(simulated.dirtyBlocks, static_cast<double>(one.blocks - one.cleanings)) << one.what;
    }
}

// 15 minutes after they were written, two in a second of each set.
TEST(Model, WritesBackWhatLiesFallow) {
    constexpr std::uint64_t kDelay = 900;
    const CacheOptions cache = Cache(2 * kSet, WriteMode::kBack);
    std::vector<Request> trace = {At(0, Kind::kWrite, 10), At(kSet, Kind::kWrite, 4)};
    const auto cleanedAfter = [&](std::uint64_t seconds) {
        trace.push_back(At(0, Kind::kFlush, 0, seconds * kSecond));
        const Simulated simulated = Play(cache, trace);
        trace.pop_back();
        EXPECT_EQ(simulated.counters[Counter::kCleanings], simulated.counters[Counter::kFallowCleanings]);
        EXPECT_EQ(simulated.seconds, static_cast<double>(seconds));
        return simulated.counters[Counter::kFallowCleanings];
    };
    EXPECT_EQ(cleanedAfter(kDelay - 1), 0U);
    EXPECT_EQ(cleanedAfter(kDelay), 4U);
    EXPECT_EQ(cleanedAfter(kDelay + 1), 8U);
    EXPECT_EQ(cleanedAfter(kDelay + 2), 10U);
    EXPECT_EQ(cleanedAfter(kDelay + 4), 14U);
    trace.push_back(At(3, Kind::kWrite, 1, 500 * kSecond));  // which then lies fallow later
    EXPECT_EQ(cleanedAfter(kDelay + 100), 13U);
    EXPECT_EQ(cleanedAfter(500 + kDelay), 14U);
}

TEST(Model, LetsLongStreamsPass) {
    const auto cache = Cache(4 * kSet, WriteMode::kBack, {{Knob::kSkipSeqThreshKb, 64}});
    std::vector<Request> trace;
    for (std::uint64_t i = 0; i < 40; ++i) {
        trace.push_back(At(1000 + i, Kind::kWrite));     // the 17th is the first beyond 64 KiB
        trace.push_back(At(5000 + 7 * i, Kind::kRead));  // at random, in between
    }
    const Simulated simulated = Play(cache, trace);
    EXPECT_EQ(simulated.counters[Counter::kUncachedSequentialWrites], 40U - 16U);
    EXPECT_EQ(simulated.counters[Counter::kUncachedSequentialReads], 0U);
    EXPECT_EQ(simulated.counters[Counter::kDiskWrites], 40U - 16U);
    EXPECT_EQ(simulated.cachedBlocks, 40 + 16);
}

TEST(Miniature, BeginsWarmWhereItIsTold) {
    const auto cache = Cache(2 * kSet, WriteMode::kThru);
    const std::vector<Request> trace = Loop(600, 2, Kind::kRead);
    for (const auto& [warmUp, hits, reads] :
         {std::tuple{0U, 600U, 1'200U}, {600U, 600U, 600U}, {1'000U, 200U, 200U}, {9'999U, 0U, 0U}}) {
        const Simulated simulated = Play(cache, trace, {.warmUpRequests = warmUp});
        EXPECT_EQ(simulated.counters[Counter::kReadHits], hits) << warmUp;
        EXPECT_EQ(simulated.counters[Counter::kReads], reads) << warmUp;
    }
}

TEST(Miniature, SamplesEachStretchByItsShare) {
    constexpr std::uint64_t kScale = 37;
    const BlockSample sample(kScale, 7);
    std::uint64_t next = 0;
    for (std::uint64_t block = 0; block < 1'000 * kScale; ++block) {
        if (const auto number = sample.Find(block)) {
            EXPECT_EQ(*number, next++);
            EXPECT_EQ(block / kScale, *number);
            EXPECT_EQ(sample.BlockOf(*number), block);
        }
    }
    EXPECT_EQ(next, 1'000U);
    EXPECT_EQ(BlockSample(1, 7).Find(12'345'678), 12'345'678U);
}

// As the benchmark does with more blocks and requests.
TEST(Miniature, IsNearTheWholeCache) {
    constexpr std::uint64_t kBlocks = 60'000;
    const SimulationOptions whole{.mostSlots = ~std::uint64_t{0}};
    const SimulationOptions sampled{.mostSlots = 16 * kSet};
    std::vector<CacheOptions> caches;
    for (const WriteMode mode : {WriteMode::kBack, WriteMode::kThru, WriteMode::kAround}) {
        caches.push_back(Cache(48 * kSet, mode, {{Knob::kSkipSeqThreshKb, 64}}));
    }
    for (const Workload& load : Workloads(kBlocks)) {
        std::mt19937_64 random(1);
        std::vector<Request> trace(200'000);
        for (Request& request : trace) {
            request = load.next(random);
        }
        for (const CacheOptions& cache : caches) {
            const Simulated truth = Play(cache, trace, whole);
            const Simulated estimate = Play(cache, trace, sampled);
            EXPECT_EQ(estimate.simulatedShare, 1.0 / 3);
            for (const Counter counter : {Counter::kReads, Counter::kWrites}) {
                EXPECT_NEAR(static_cast<double>(estimate.counters[counter]),
                            static_cast<double>(truth.counters[counter]), 4);
            }
            const auto references =
                static_cast<double>(truth.counters[Counter::kReads] + truth.counters[Counter::kWrites]);
            for (std::size_t i = 1; i < static_cast<std::size_t>(Counter::kCount); ++i) {
                const auto counter = static_cast<Counter>(i);
                // How many changes share a page and a write hangs on blocks that are not in the sample.
                if (counter != Counter::kMetadataBatch && counter != Counter::kMetadataSsdWrites) {
                    EXPECT_NEAR(static_cast<double>(estimate.counters[counter]) / references,
                                static_cast<double>(truth.counters[counter]) / references, 0.02)
                        << load.name << ", mode " << static_cast<int>(cache.mode) << ", counter " << i;
                }
            }
        }
    }
}

TEST(Miniature, TakesAnyRequest) {
    constexpr std::uint64_t kMost = ~std::uint64_t{0};
    std::vector<Request> trace;
    for (const std::uint64_t time : {std::uint64_t{0}, kMost, kMost / 2}) {
        for (const Kind kind : {Kind::kDiscard, Kind::kWrite, Kind::kRead, Kind::kFlush}) {
            for (const std::uint64_t offset : {std::uint64_t{0}, kMost / 2, kMost - 4096}) {
                for (const std::uint64_t length : {std::uint64_t{0}, std::uint64_t{1}, kMost - offset}) {
                    trace.push_back({time, offset % 7, offset, length, kind});
                }
            }
        }
    }
    const Simulated simulated = Play(Cache(2 * kSet, WriteMode::kBack), trace);
    EXPECT_GT(simulated.counters[Counter::kWriteInvalidates], 0U);
    EXPECT_GT(simulated.counters[Counter::kFallowCleanings], 0U);
    EXPECT_THROW(Play(Cache(0, WriteMode::kBack), trace), Failure);
    CacheOptions huge = Cache(1, WriteMode::kBack);
    huge.bytes = kMost;
    EXPECT_GT(Play(huge, trace).slots, std::uint64_t{1} << 50U);
    EXPECT_EQ(Play(Cache(kSet, WriteMode::kBack), {}).counters[Counter::kReads], 0U);
}

}  // namespace
}  // namespace sizing
