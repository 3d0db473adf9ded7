// Disks that fail under a simulated cache, and an SSD that was used before.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <system_error>
#include <vector>

#include "simulation/disks.h"
#include "simulation/kernel/cache.h"

namespace simulation {
namespace {

constexpr uint64_t kBlock = 4096;

enum class Request : uint8_t { kRead, kWrite, kSync };
enum class Block : uint8_t { kUncached, kClean, kDirty };

// A request for one block, which holds 1 on the volume and 2 where it is dirty; a write brings 3.
struct Case {
    WriteMode mode;
    Block block;
    const char* failing;  // the disk
    DiskUse use;          // what fails of it
    Request request;
    bool succeeds;
    uint32_t holds;  // the block, once the disk is well again
    const char* counted;
};

void PrintTo(const Case& one, std::ostream* out) {
    *out << "mode " << static_cast<int>(one.mode) << ", block " << static_cast<int>(one.block) << ", "
         << one.failing << " fails " << static_cast<int>(one.use) << ", request "
         << static_cast<int>(one.request);
}

class FailingDisks : public testing::TestWithParam<Case> {
  protected:
    FailingDisks() {
        Put(*space_, 1);
        const Superblock superblock =
            MakeSuperblock(*ssd_, *space_, "c", GetParam().mode, kVersionOriginal, 256 << 10);
        cache_ = Cache::Create(superblock, *ssd_, *space_, faults_, pace_);
        if (GetParam().block == Block::kClean) {
            Get();
        } else if (GetParam().block == Block::kDirty) {
            Put(*cache_, 2);
        }
        for (Disk* disk : {&*ssd_, &*space_}) {
            disk->BeforeEachUse([this, disk](const DiskRequest& request) {
                if (failing_ && disk->Path() == GetParam().failing && request.use == GetParam().use) {
                    throw std::system_error(EIO, std::generic_category());
                }
            });
        }
    }

    template <typename Target>
    static void Put(Target& target, uint32_t stamp) {
        std::vector<Sector> content(kBlock / kSector, Stamp(stamp));
        target.Write(0, Bytes(content));
    }
    uint32_t Get() {
        std::vector<Sector> content(kBlock / kSector);
        cache_->Read(0, Bytes(content));
        return content[3][0];
    }
    void Ask(Request request) {
        switch (request) {
            case Request::kRead:
                EXPECT_EQ(Get(), GetParam().holds);
                break;
            case Request::kWrite:
                Put(*cache_, 3);
                break;
            case Request::kSync:
                cache_->Sync();
        }
    }

    VolatileDisk ssd_{"/dev/md3", 2 << 20};
    VolatileDisk space_{"/dev/vg1/volume_1", 4 << 20};
    Faults faults_;
    CleanPace pace_{0};
    std::unique_ptr<Cache> cache_;
    bool failing_ = false;
};

TEST_P(FailingDisks, CostNothingThatTheOtherHolds) {
    failing_ = true;
    bool succeeded = true;
    try {
        Ask(GetParam().request);
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code().value(), EIO);
        succeeded = false;
    }
    EXPECT_EQ(succeeded, GetParam().succeeds);
    EXPECT_THAT(cache_->Errors(), testing::HasSubstr(GetParam().counted));
    failing_ = false;
    EXPECT_EQ(Get(), GetParam().holds);
    cache_->Sync();
}

constexpr auto kSsd = "/dev/md3";
constexpr auto kVolume = "/dev/vg1/volume_1";
constexpr auto kThru = WriteMode::kThru;
constexpr auto kBack = WriteMode::kBack;
constexpr auto kAround = WriteMode::kAround;

INSTANTIATE_TEST_SUITE_P(
    All, FailingDisks,
    testing::Values(
        Case{kThru, Block::kClean, kSsd, DiskUse::kRead, Request::kRead, true, 1, "ssd_read_errors=1"},
        Case{kAround, Block::kClean, kSsd, DiskUse::kRead, Request::kRead, true, 1, "ssd_read_errors=1"},
        Case{kBack, Block::kClean, kSsd, DiskUse::kRead, Request::kRead, true, 1, "ssd_read_errors=1"},
        Case{kBack, Block::kDirty, kSsd, DiskUse::kRead, Request::kRead, false, 2, "ssd_read_errors=1"},
        Case{kBack, Block::kUncached, kSsd, DiskUse::kWrite, Request::kRead, true, 1, "ssd_write_errors=1"},
        Case{kBack, Block::kUncached, kVolume, DiskUse::kRead, Request::kRead, false, 1,
             "disk_read_errors=1"},
        Case{kThru, Block::kClean, kSsd, DiskUse::kWrite, Request::kWrite, true, 3, "ssd_write_errors=1"},
        Case{kBack, Block::kClean, kSsd, DiskUse::kWrite, Request::kWrite, true, 3, "ssd_write_errors=1"},
        Case{kBack, Block::kUncached, kSsd, DiskUse::kWrite, Request::kWrite, true, 3, "ssd_write_errors=1"},
        Case{kBack, Block::kDirty, kSsd, DiskUse::kWrite, Request::kWrite, false, 2, "ssd_write_errors=1"},
        Case{kBack, Block::kDirty, kVolume, DiskUse::kWrite, Request::kWrite, true, 3, "disk_write_errors=0"},
        Case{kThru, Block::kClean, kVolume, DiskUse::kWrite, Request::kWrite, false, 1,
             "disk_write_errors=1"},
        Case{kAround, Block::kClean, kVolume, DiskUse::kWrite, Request::kWrite, false, 1,
             "disk_write_errors=1"},
        Case{kThru, Block::kClean, kSsd, DiskUse::kFlush, Request::kSync, true, 1, "ssd_write_errors=1"},
        Case{kThru, Block::kClean, kVolume, DiskUse::kFlush, Request::kSync, false, 1, "disk_write_errors=1"},
        Case{kBack, Block::kClean, kSsd, DiskUse::kWrite, Request::kSync, true, 1, "ssd_write_errors=1"},
        Case{kBack, Block::kDirty, kSsd, DiskUse::kWrite, Request::kSync, false, 2, "ssd_write_errors=1"}));

// The SSD carried another cache, whose map calls slots dirty: none of them may belong to the new one, however
// far its creation came.
TEST(CacheTest, CreatedOnAUsedSsdFindsNothingOfTheOldInAPowerCut) {
    int cutsWithSuperblock = 0;
    for (uint64_t seed = 1; seed <= 12; ++seed) {
        for (int cut = 1; cut <= 5; ++cut) {
            VolatileDisk ssd("/dev/md3", 2 << 20);
            VolatileDisk space("/dev/vg1/volume_1", 4 << 20);
            Faults faults;
            const CleanPace pace{0};
            int left = 0;
            const auto use = [&left](const DiskRequest& request) {
                if (request.use != DiskUse::kRead && left > 0 && --left == 0) {
                    throw PowerCut{};
                }
            };
            ssd.PowerUp(seed, use);
            space.PowerUp(seed, use);
            const Superblock superblock =
                MakeSuperblock(*ssd, *space, "c", WriteMode::kBack, kVersionOriginal, 256 << 10);
            std::vector<Sector> content(64, Stamp(7));
            {
                const auto old = Cache::Create(superblock, *ssd, *space, faults, pace);
                old->Write(0, Bytes(content));
                old->TakeDown();
            }
            WipeSuperblock(*ssd);
            left = cut;
            try {
                Cache::Create(superblock, *ssd, *space, faults, pace);
            } catch (const PowerCut&) {
            }
            left = 0;
            ssd.PowerUp(seed, use);
            if (ReadSuperblock(*ssd)) {
                ++cutsWithSuperblock;
                const auto created = Cache::Load(superblock, *ssd, *space, faults, pace);
                created->Read(0, Bytes(content));
                ASSERT_EQ(content, std::vector<Sector>(64)) << "seed " << seed << ", cut " << cut;
            }
        }
    }
    EXPECT_GT(cutsWithSuperblock, 12) << "others than those after the end";
}

}  // namespace
}  // namespace simulation
