// What an SSD tells of its cache: dirty blocks that nobody may forget, blocks that are older than the volume,
// and a configuration that was lost.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "cli/tool.h"

namespace tests {
namespace {

using ::testing::HasSubstr;

constexpr const char* kConfig = "/usr/vemo/etc/flashcache.conf";

void LoseConfig() {
    std::ofstream(kConfig, std::ios::trunc).flush();
}

void WriteVolume() {
    ASSERT_EQ(RunProgram({"mkfs.ext4", "-q", "/dev/vg1/volume_1"}).code, 0);
}

Json TheCache() {
    return Answer({"list"})["caches"][0];
}

TEST(SsdContent, IsToldByProbeListAndStatus) {
    CreateDirtyCache();
    EXPECT_EQ(Answer({"probe", "/dev/md3"})["probe"]["dirty_blocks"], kDirty);  // the kernel's, while it runs
    ASSERT_EQ(Tool({"unload", "cachedev_0"}).code, 0);
    const auto probe = Answer({"probe", "/dev/md3"})["probe"];
    EXPECT_EQ(probe["volume"], "/dev/vg1/volume_1");
    EXPECT_EQ(probe["write_mode"], "back");
    EXPECT_EQ(probe["size_bytes"], 64 << 20);
    EXPECT_EQ(probe["block_size_bytes"], 65536);
    EXPECT_EQ(probe["taken_down_in_order"], true);
    EXPECT_EQ(probe["dirty_blocks"], kDirty);
    EXPECT_EQ(TheCache()["dirty_bytes"], kDirty * 65536);
    EXPECT_THAT(TheCache()["problem"], HasSubstr("its SSD holds 20 dirty blocks (1.2 MiB); load it before"));
    EXPECT_EQ(Answer({"status", "md3+volume_1"})["caches"][0]["dirty_blocks"], kDirty);
}

TEST(SsdContent, OfAnotherVolumeIsNotLoaded) {
    CreateCache();
    ASSERT_EQ(Tool({"unload", "cachedev_0"}).code, 0);
    ASSERT_EQ(RunProgram({"sed", "-i", "s,/dev/vg1/volume_1,/dev/vg1/volume_2,", kConfig}).code, 0);
    EXPECT_THAT(TheCache()["problem"], HasSubstr("a cache of another volume, /dev/vg1/volume_1"));
    const Ran load = Tool({"load", "/dev/md3"});
    EXPECT_EQ(load.code, 1);
    EXPECT_THAT(load.err,
                HasSubstr("holds a cache of the volume /dev/vg1/volume_1, not of /dev/vg1/volume_2"));
}

TEST(StaleBlocks, AreLoadedWithConsentAlone) {
    CreateDirtyCache();
    ASSERT_EQ(Tool({"unload", "cachedev_0"}).code, 0);
    EXPECT_EQ(Tool({"load", "md3+volume_1"}).code, 0);  // nobody wrote
    ASSERT_EQ(Tool({"unload", "cachedev_0"}).code, 0);
    WriteVolume();
    EXPECT_THAT(TheCache()["problem"], HasSubstr("its blocks are stale"));
    for (const Words& load : {Words{"load", "md3+volume_1", "--json"}, Words{"load", "--all", "--json"}}) {
        const Ran ran = Tool(load);
        EXPECT_EQ(ran.code, 1);
        EXPECT_THAT(ran.out, HasSubstr("was written without it"));
        EXPECT_EQ(TheCache()["state"], "unloaded");
    }
    EXPECT_EQ(Tool({"load", "md3+volume_1", "--accept-stale"}).code, 0);
}

TEST(StaleBlocks, ThatNobodyCouldSeeAreSaidToBePossible) {
    CreateDirtyCache();
    ASSERT_EQ(RunProgram({"dmsetup", "remove", "cachedev_0"}).code, 0);
    const Ran load = Tool({"load", "md3+volume_1"});
    EXPECT_EQ(load.code, 0);
    EXPECT_THAT(load.err, HasSubstr("was written without its cache is not known"));
}

TEST(StaleBlocks, AreNoneOfACacheThatOthersUsedSince) {
    CreateDirtyCache();
    ASSERT_EQ(Tool({"unload", "cachedev_0"}).code, 0);
    ASSERT_EQ(RunProgram({"flashcache_load", "/dev/md3", "cachedev_0", "/dev/vg1/volume_1"}).code, 0);
    Fault("cleaning", "run");
    ASSERT_EQ(RunProgram({"mkfs.ext4", "-q", "/dev/mapper/cachedev_0"}).code, 0);
    ASSERT_EQ(RunProgram({"dmsetup", "remove", "cachedev_0"}).code, 0);  // writes back to the volume
    const Ran load = Tool({"load", "md3+volume_1"});
    EXPECT_EQ(load.code, 0) << load.err;
    EXPECT_THAT(load.err, HasSubstr("was written without its cache is not known"));
}

TEST(LostConfig, IsMadeAnewFromTheSsd) {
    CreateDirtyCache();
    ASSERT_EQ(Tool({"unload", "cachedev_0"}).code, 0);
    LoseConfig();
    const Ran other = Tool({"load", "/dev/md3", "/dev/vg1/volume_2"});
    EXPECT_EQ(other.code, 1);
    EXPECT_THAT(other.err, HasSubstr("vemocachectl load /dev/md3 /dev/vg1/volume_1"));
    EXPECT_EQ(Tool({"load", "/dev/md4", "/dev/vg1/volume_2"}).code, 1);
    EXPECT_EQ(Answer({"load", "/dev/md3", "/dev/vg1/volume_1"})["cache"]["device"], "/dev/mapper/cachedev_0");
    EXPECT_EQ(DirtyBlocks(), kDirty);
    const auto entry = Answer({"config", "show", "md3+volume_1"})["entry"];
    EXPECT_EQ(entry["write_mode"], "back");
    EXPECT_EQ(entry["size_bytes"], 64 << 20);
    EXPECT_EQ(entry["format"], "new");
    EXPECT_EQ(entry["loaded"], true);
    Fault("cleaning", "run");
    EXPECT_EQ(Tool({"delete", "md3+volume_1"}).code, 0);
    EXPECT_TRUE(VolumeHoldsData());
}

TEST(LostConfig, LeavesNoEntryOfALoadingThatFails) {
    CreateCache();
    ASSERT_EQ(Tool({"unload", "cachedev_0"}).code, 0);
    LoseConfig();
    Fault("tool.flashcache_load", "fail");
    EXPECT_EQ(Tool({"load", "/dev/md3", "/dev/vg1/volume_1"}).code, 1);
    EXPECT_TRUE(Answer({"list"})["caches"].empty());
}

TEST(LostConfig, IsAdoptedFromTheKernel) {
    for (const char* mode : {"back", "around", "thru"}) {
        ASSERT_EQ(Tool({"create", "/dev/md3", "/dev/vg1/volume_1", "--size", "32M", "--mode", mode,
                        "--reclaim", "fifo", "--skip-sequential", "--discard-content"})
                      .code,
                  0);
        const auto before = Answer({"config", "show", "md3+volume_1"})["entry"];
        LoseConfig();
        EXPECT_THAT(TheCache()["problem"], HasSubstr("vemocachectl config adopt cachedev_0"));
        EXPECT_EQ(Tool({"flush", "cachedev_0"}).code, mode == std::string("back") ? 1 : 0);
        const auto entry = Answer({"config", "adopt", "cachedev_0"})["entry"];
        for (const char* key : {"name", "ssd", "volume", "mount_path", "write_mode", "size_bytes", "format",
                                "reclaim_policy", "skips_sequential", "loaded"}) {
            EXPECT_EQ(entry[key], before[key]) << mode << key;
        }
        EXPECT_TRUE(TheCache()["problem"].IsNull()) << TheCache();
        EXPECT_EQ(Tool({"config", "adopt", "cachedev_0"}).code, 1);
        ASSERT_EQ(Tool({"delete", "cachedev_0"}).code, 0);
    }
}

TEST(SsdContent, LetsACacheBeDeletedThatIsDownAndClean) {
    CreateCache();
    ASSERT_EQ(Tool({"unload", "cachedev_0"}).code, 0);
    EXPECT_EQ(Tool({"delete", "md3+volume_1"}).code, 0);
    EXPECT_EQ(Answer({"probe", "/dev/md3"}, kNo)["probe"]["has_metadata"], false);
    EXPECT_TRUE(Answer({"list"})["caches"].empty());
}

TEST(DeadSsd, HasAWayOut) {
    CreateDirtyCache();
    ASSERT_EQ(Tool({"unload", "cachedev_0"}).code, 0);
    EXPECT_THAT(Tool({"delete", "md3+volume_1"}).err, HasSubstr("vemocachectl load md3+volume_1; "));
    ASSERT_EQ(RunProgram({"mv", "/dev/md3", "/dev/gone"}).code, 0);
    for (const char* verb : {"load", "delete"}) {
        const Ran ran = Tool({verb, "md3+volume_1"});
        EXPECT_EQ(ran.code, 1);
        EXPECT_THAT(ran.err, HasSubstr("vemocachectl config remove md3+volume_1 --forget-cache"));
    }
    EXPECT_EQ(Tool({"config", "remove", "md3+volume_1", "--forget-cache"}).code, 0);
}

}  // namespace
}  // namespace tests
