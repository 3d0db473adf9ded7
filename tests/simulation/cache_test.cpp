// The simulated cache against a model: whatever is done to it, every byte read is one that was written, and
// neither a crash nor a power cut loses anything that was synced.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <set>

#include "simulation/disks.h"
#include "simulation/kernel/cache.h"
#include "simulation/kernel/system_log.h"
#include "simulation/seed.h"

namespace simulation {
namespace {

constexpr uint64_t kSpaceBytes = 4 * 1024 * 1024 + 3 * kSector;  // the last block is not a whole one
constexpr uint64_t kSectors = kSpaceBytes / kSector;

struct Setup {
    WriteMode mode;
    uint32_t version;
    int32_t reclaim;
    uint64_t bytes;  // few, so that slots are soon taken for other blocks
    const char* name;
};

void PrintTo(const Setup& setup, std::ostream* out) {
    *out << setup.name;
}

// A cache that is used at random, next to what each sector may hold: after a crash or a power cut, also the
// last synced stamp or any written since.
class Model {
  public:
    Model(const Setup& setup, unsigned seed) : random_(seed) {
        PowerUp();
        const Superblock superblock =
            MakeSuperblock(*ssd_, *space_, "cachedev_0", setup.mode, setup.version, setup.bytes);
        cache_ = Cache::Create(superblock, *ssd_, *space_, faults_, pace_);
        reclaim_ = std::to_string(setup.reclaim);
        cache_->SetKnob(Knob::kReclaimPolicy, reclaim_);
    }

    // Seldom anything that brings the map on the SSD up to date: what it has missed is what a crash tells.
    void Step() {
        const uint64_t kind = Pick(100);
        if (kind < 1) {
            Sync();
        } else if (kind < 2) {
            cache_->CleanBlocks(Pick(100));
        } else if (kind < 3) {
            Discard();
        } else if (kind < 4) {
            cache_->Work();
        } else if (kind < 6) {
            cache_->SetKnob(Knob::kSkipSeqThreshKb, Pick(2) == 0 ? "0" : "64");
        } else if (kind < 14) {
            cache_->SetKnob(Knob::kCacheAll, Pick(3) == 0 ? "0" : "1");
        } else if (kind < 40) {
            Read();
        } else {
            Write();
        }
    }

    // The cache is gone without a word, and loaded again. What reads back is what it holds from now on.
    void Crash() {
        const Superblock superblock = *ReadSuperblock(*ssd_);
        cache_ = Cache::Load(superblock, *ssd_, *space_, faults_, pace_);
        cache_->SetKnob(Knob::kReclaimPolicy, reclaim_);
        const std::vector<uint32_t> stamps = ReadStamps();
        for (uint64_t sector = 0; sector < kSectors; ++sector) {
            const uint32_t found = stamps[sector];
            ASSERT_TRUE(found == synced_[sector] || since_[sector].contains(found))
                << "sector " << sector << " holds " << found << ", synced was " << synced_[sector];
            current_[sector] = found;
            since_[sector].insert(found);
        }
    }

    void TakeDownAndLoad() {
        cache_->TakeDown();
        synced_ = current_;
        since_.clear();
        Crash();
    }

    // The power is cut before one of the next writes and flushes, often those of a sync, and the disks lose
    // what they had not flushed.
    void UseUntilPowerCut() {
        Steps(Pick(40));
        usesLeft_ = 1 + Pick(Pick(2) == 0 ? 12 : 300);
        try {
            while (!testing::Test::HasFatalFailure()) {
                Pick(3) == 0 ? TakeDownAndLoad() : Sync();
                Steps(Pick(20));
            }
        } catch (const PowerCut&) {
            PowerUp();
        }
    }

    void Steps(uint64_t count) {
        for (; count > 0 && !testing::Test::HasFatalFailure(); --count) {
            Step();
        }
    }

    // Some requests to the disks fail meanwhile. What fails leaves each sector as it was or as it was to be.
    void StepsOnFailingDisks(uint64_t count) {
        for (; count > 0 && !testing::Test::HasFatalFailure(); --count) {
            const std::vector<uint32_t> before = current_;
            failing_ = true;
            bool failed = false;
            try {
                Step();
            } catch (const std::system_error&) {
                failed = true;
                ++failures_;
            }
            failing_ = false;
            if (failed) {
                TakeWhatIsThere(before);
            }
        }
    }
    uint64_t Failures() const { return failures_; }

    void ExpectAllAsWritten() { ASSERT_EQ(ReadStamps(), current_); }

    // After everything is cleaned, the volume alone holds it all.
    void ExpectVolumeAsWritten() {
        cache_->CleanBlocks(cache_->DirtyBlocks());
        ASSERT_EQ(cache_->DirtyBlocks(), 0U);
        for (uint64_t sector = 0; sector < kSectors; ++sector) {
            Sector content{};
            space_->Read(sector * kSector, Bytes({&content, 1}));
            ASSERT_EQ(content, Stamp(current_[sector])) << "sector " << sector;
        }
    }

  private:
    void TakeWhatIsThere(const std::vector<uint32_t>& before) {
        const std::vector<uint32_t> stamps = ReadStamps();
        for (uint64_t sector = 0; sector < kSectors; ++sector) {
            const uint32_t found = stamps[sector];
            ASSERT_TRUE(found == current_[sector] || found == before[sector])
                << "sector " << sector << " holds " << found << ", not " << before[sector] << " or "
                << current_[sector];
            current_[sector] = found;
        }
    }

    void Sync() {
        cache_->Sync();
        synced_ = current_;
        since_.clear();
    }

    uint64_t Pick(uint64_t below) { return random_() % below; }

    void PowerUp() {
        for (VolatileDisk* disk : {&ssd_, &space_}) {
            disk->PowerUp(random_(), [this](const DiskRequest& request) {
                if (request.use != DiskUse::kRead && usesLeft_ > 0 && --usesLeft_ == 0) {
                    throw PowerCut{};
                }
                if (failing_ && Pick(6) == 0) {
                    throw std::system_error(EIO, std::generic_category());
                }
            });
        }
    }

    // What all sectors hold.
    std::vector<uint32_t> ReadStamps() {
        std::vector<Sector> content(kSectors);
        cache_->Read(0, Bytes(content));
        std::vector<uint32_t> stamps(kSectors);
        for (uint64_t sector = 0; sector < kSectors; ++sector) {
            stamps[sector] = content[sector][0];
            EXPECT_TRUE(content[sector] == Stamp(stamps[sector])) << "sector " << sector << " is torn";
        }
        return stamps;
    }

    std::pair<uint64_t, uint64_t> PickRange() {
        const uint64_t first = Pick(kSectors);
        return {first, std::min(kSectors - first, 1 + Pick(Pick(4) == 0 ? 600 : 16))};
    }

    void Note(uint64_t sector, uint32_t stamp) {
        current_[sector] = stamp;
        since_[sector].insert(stamp);
    }

    void Read() {
        const auto [first, count] = PickRange();
        std::vector<Sector> content(count);
        cache_->Read(first * kSector, Bytes(content));
        for (uint64_t i = 0; i < count; ++i) {
            ASSERT_EQ(content[i], Stamp(current_[first + i])) << "sector " << first + i;
        }
    }

    void Write() {
        const auto [first, count] = PickRange();
        std::vector<Sector> content;
        for (uint64_t i = 0; i < count; ++i) {
            content.push_back(Stamp(++lastStamp_));
            Note(first + i, lastStamp_);
        }
        cache_->Write(first * kSector, Bytes(content));
    }

    void Discard() {
        const auto [first, count] = PickRange();
        for (uint64_t i = 0; i < count; ++i) {
            Note(first + i, 0);
        }
        cache_->Discard(first * kSector, count * kSector);
    }

    std::mt19937 random_;
    Faults faults_;
    CleanPace pace_{0};
    VolatileDisk ssd_{"/dev/md3", 2 * 1024 * 1024};
    VolatileDisk space_{"/dev/vg1/volume_1", kSpaceBytes};
    uint64_t usesLeft_ = 0;  // until the power is cut; 0: it is not
    bool failing_ = false;
    uint64_t failures_ = 0;
    std::unique_ptr<Cache> cache_;
    std::string reclaim_;
    uint32_t lastStamp_ = 0;
    std::vector<uint32_t> current_ = std::vector<uint32_t>(kSectors, 0);
    std::vector<uint32_t> synced_ = std::vector<uint32_t>(kSectors, 0);
    std::map<uint64_t, std::set<uint32_t>> since_;
};

class CacheModelTest : public testing::TestWithParam<Setup> {};

TEST_P(CacheModelTest, KeepsWhatWasWrittenThroughEverything) {
    for (const unsigned seed : {1U, 2U}) {
        Model model(GetParam(), seed);
        for (int round = 0; round < 16; ++round) {
            model.Steps(100);
            model.ExpectAllAsWritten();
            round % 3 == 2 ? model.TakeDownAndLoad() : model.Crash();
            if (HasFatalFailure()) {
                return;
            }
        }
        model.ExpectVolumeAsWritten();
    }
}

TEST_P(CacheModelTest, LosesNothingSyncedInAPowerCut) {
    const unsigned first = FirstSeed();
    for (unsigned seed = first; seed < first + 2; ++seed) {
        Model model(GetParam(), seed);
        for (int round = 0; round < 12; ++round) {
            model.UseUntilPowerCut();
            model.Crash();
            model.ExpectAllAsWritten();
            if (HasFatalFailure()) {
                FAIL() << "seed " << seed << ", round " << round;
            }
        }
    }
}

TEST_P(CacheModelTest, LosesNothingSyncedOnDisksThatFail) {
    const unsigned first = FirstSeed();
    for (unsigned seed = first; seed < first + 2; ++seed) {
        Model model(GetParam(), seed);
        for (int round = 0; round < 10; ++round) {
            model.StepsOnFailingDisks(40);
            model.ExpectAllAsWritten();
            model.Crash();
            model.UseUntilPowerCut();
            model.Crash();
            if (HasFatalFailure()) {
                FAIL() << "seed " << seed << ", round " << round;
            }
        }
        EXPECT_GT(model.Failures(), 20U);
        model.ExpectVolumeAsWritten();
    }
}

INSTANTIATE_TEST_SUITE_P(
    Modes, CacheModelTest,
    testing::Values(Setup{WriteMode::kBack, kVersionOriginal, kReclaimFifo, 256 << 10, "BackFifo"},
                    Setup{WriteMode::kBack, kVersionOriginal, kReclaimLru, 256 << 10, "BackLru"},
                    Setup{WriteMode::kBack, kVersionNew, kReclaimLru, 512 << 10, "BackNew"},
                    Setup{WriteMode::kThru, kVersionOriginal, kReclaimFifo, 256 << 10, "Thru"},
                    Setup{WriteMode::kAround, kVersionNew, kReclaimFifo, 512 << 10, "Around"}),
    [](const auto& setup) { return setup.param.name; });

TEST(CacheTest, RefusesASizeThatTheSsdCannotHold) {
    const Disk ssd = MakeDisk("/dev/md3", 2 * 1024 * 1024);
    const Disk space = MakeDisk("/dev/vg1/volume_1", kSpaceBytes);
    const auto slots = [&](uint64_t bytes) {
        return MakeSuperblock(ssd, space, "c", WriteMode::kBack, kVersionOriginal, bytes).slots;
    };
    EXPECT_EQ(slots(1024 * 1024), 256U);
    EXPECT_GT(slots(0), 450U);                    // the whole SSD
    EXPECT_EQ(slots(2 * 1024 * 1024), slots(0));  // what is left beside the map
    EXPECT_THROW(slots(2 * 1024 * 1024 + 4096), std::system_error);
}

TEST(FaultsTest, CountSkippedAndMetUses) {
    Faults faults;
    ASSERT_TRUE(faults.Set("knob.*", "reject@2x1"));
    EXPECT_EQ(faults.Take("knob.*"), "");
    EXPECT_EQ(faults.Take("knob.*"), "");
    EXPECT_EQ(faults.Take("knob.*"), "reject");
    EXPECT_EQ(faults.Take("knob.*"), "");
    ASSERT_TRUE(faults.Set("remove", "busy"));
    EXPECT_EQ(faults.Take("remove"), "busy");
    EXPECT_EQ(faults.Text(), "knob.* rejectx0\nremove busy\n");
    ASSERT_TRUE(faults.Set("remove", "ok"));
    EXPECT_EQ(faults.Take("remove"), "");
    for (const char* bad : {"", "@1", "fail@", "fail@x1", "fail@1x", "fail@1x2y"}) {
        EXPECT_FALSE(faults.Set("remove", bad)) << bad;
    }
}

TEST(SystemLogTest, MakesReadableLines) {
    EXPECT_EQ(FormatLogLine("<11>Jan  2 03:04:05 prog: one\ntwo\n"),
              "Jan  2 03:04:05 <3> prog: one#012two\n");
    EXPECT_EQ(FormatLogLine(std::string_view("<15>Jan  2 03:04:05 p[1]: x\0", 28)),
              "Jan  2 03:04:05 <7> p[1]: x\n");
}

}  // namespace
}  // namespace simulation
