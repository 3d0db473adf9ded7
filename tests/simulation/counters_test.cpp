// The counters of a simulated cache on real disks against those that the model alone tells of the same
// requests.
#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <span>
#include <utility>
#include <vector>

#include "simulation/disks.h"
#include "simulation/kernel/cache.h"
#include "simulation/seed.h"
#include "sizing/miniature/miniature.h"

namespace simulation {
namespace {

constexpr uint64_t kMiB = uint64_t{1} << 20U;
constexpr uint64_t kVolume = 64 * kMiB;

using Knobs = std::vector<std::pair<Knob, int32_t>>;

// A cache of more than one set, with a volume of twice its size.
class CountersTest : public testing::Test {
  protected:
    void Create(WriteMode mode, uint32_t version, const Knobs& knobs) {
        const uint64_t bytes = version == kVersionNew ? kVolume : 8 * kMiB;
        ssd_ = std::make_unique<Disk>(MakeDisk("/dev/md3", bytes + 4 * kMiB));
        space_ = std::make_unique<Disk>(MakeDisk("/dev/vg1/volume_1", 2 * bytes));
        const Superblock superblock = MakeSuperblock(*ssd_, *space_, "c", mode, version, bytes);
        cache_ = Cache::Create(superblock, *ssd_, *space_, faults_, pace_);
        trace_.clear();
        model_ = {};
        model_.bytes = bytes;
        model_.blockSize = sizing::BlockSize(superblock.blockSize);
        model_.mode = mode == WriteMode::kBack   ? sizing::WriteMode::kBack
                      : mode == WriteMode::kThru ? sizing::WriteMode::kThru
                                                 : sizing::WriteMode::kAround;
        for (const auto& [knob, value] : knobs) {
            ASSERT_EQ(cache_->SetKnob(knob, std::to_string(value)), 0);
            model_.knobs[knob] = value;
        }
    }

    void Request(sizing::Kind kind, uint64_t offset, uint64_t length) {
        trace_.push_back({pace_.Nanoseconds(), 1, offset, length, kind});
        if (kind == sizing::Kind::kRead) {
            cache_->Read(offset, std::span(memory_).first(length));
        } else if (kind == sizing::Kind::kWrite) {
            cache_->Write(offset, std::span(memory_).first(length));
        } else if (kind == sizing::Kind::kDiscard) {
            cache_->Discard(offset, length);
        } else {
            cache_->Sync();
        }
        cache_->Work();
    }

    // Small ones at a few places and all over, streams, and whatever else a file system asks for.
    void RequestAtRandom(std::mt19937_64& random) {
        const uint64_t sectors = space_->Size() / kSector;
        const uint64_t kind = random() % 100;
        uint64_t first = random() % (random() % 5 != 0 ? sectors : sectors / 16);
        uint64_t length = 1 + random() % (random() % 4 == 0 ? kMiB / kSector : 32);
        if (kind < 20) {
            first = stream_ % sectors;
            length = std::min<uint64_t>(64, sectors - first);
            stream_ += length;
        } else if (kind < 90) {
            first = random() % 4 == 0 ? first : first / 8 * 8;
            length = random() % 4 == 0 ? length : (length + 7) / 8 * 8;
        }
        length = std::min(length, sectors - first);
        Request(kind < 70   ? sizing::Kind::kRead
                : kind < 97 ? sizing::Kind::kWrite
                : kind < 98 ? sizing::Kind::kDiscard
                            : sizing::Kind::kFlush,
                first * kSector, length * kSector);
    }

    // Block after block of the volume, but no two neighbours in a row.
    void ReadAll() {
        const uint64_t size = model_.blockSize.Bytes();
        const uint64_t blocks = space_->Size() / size;
        for (uint64_t i = 0; i < blocks; ++i) {
            Request(sizing::Kind::kRead, i * 769 % blocks * size, size);
        }
    }

    sizing::Simulated Simulate() const {
        bool isRead = false;
        const auto source = [&] {
            return std::exchange(isRead, true) ? std::span<const sizing::Request>() : std::span(trace_);
        };
        return sizing::SimulateCaches({model_}, {.mostSlots = ~uint64_t{0}}, source).front();
    }

    Faults faults_;
    CleanPace pace_{0};
    std::unique_ptr<Disk> ssd_;
    std::unique_ptr<Disk> space_;
    std::unique_ptr<Cache> cache_;
    std::vector<char> memory_ = std::vector<char>(kMiB);
    uint64_t stream_ = 0;
    std::vector<sizing::Request> trace_;
    sizing::CacheOptions model_;
};

TEST_F(CountersTest, AreThoseOfTheModel) {
    const auto name = [](WriteMode mode) {
        return mode == WriteMode::kBack ? "back" : mode == WriteMode::kThru ? "thru" : "around";
    };
    std::mt19937_64 random(FirstSeed());
    for (const WriteMode mode : {WriteMode::kBack, WriteMode::kThru, WriteMode::kAround}) {
        for (const int32_t policy : {kReclaimFifo, kReclaimLru}) {
            for (const uint32_t version : {kVersionOriginal, kVersionNew}) {
                Create(mode, version,
                       {{Knob::kReclaimPolicy, policy},
                        {Knob::kSkipSeqThreshKb, static_cast<int32_t>(random() % 2 * 100)},
                        {Knob::kDirtyThreshPct, static_cast<int32_t>(random() % 60)}});
                ReadAll();
                for (int i = 0; i < 1'000; ++i) {
                    RequestAtRandom(random);
                }
                const sizing::Simulated simulated = Simulate();
                EXPECT_EQ(cache_->Stats(), simulated.counters.Format(model_.mode))
                    << name(mode) << ", policy " << policy << ", version " << version;
                EXPECT_EQ(static_cast<double>(cache_->DirtyBlocks()), simulated.dirtyBlocks);
                EXPECT_GT(simulated.counters[sizing::Counter::kReplacement], 0U);
            }
        }
    }
}

// Cleaning by time happens when the kernel comes to it, up to a second late: what has its turn in two
// seconds, two blocks a set in each, may be on the way.
TEST_F(CountersTest, OfCleaningByTimeAreNearThoseOfTheModel) {
    Create(WriteMode::kBack, kVersionOriginal, {{Knob::kFallowDelay, 60}, {Knob::kDirtyThreshPct, 50}});
    std::mt19937_64 random(FirstSeed());
    for (int i = 0; i < 600; ++i) {
        RequestAtRandom(random);
        pace_.MoveForward(std::chrono::seconds(random() % 2));
    }
    const sizing::Simulated simulated = Simulate();
    const uint64_t cleaned = simulated.counters[sizing::Counter::kFallowCleanings];
    EXPECT_GT(cleaned, 300U);
    EXPECT_NEAR(static_cast<double>(cache_->DirtyBlocks()), simulated.dirtyBlocks, 2 * 2 * 4);
}

}  // namespace
}  // namespace simulation
