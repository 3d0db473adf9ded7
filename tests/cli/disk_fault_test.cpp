// What the tool says of a cache whose SSD or volume fails, and that nothing is lost by it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cli/tool.h"

namespace tests {
namespace {

using ::testing::HasSubstr;

TEST(DiskFault, KeepsAFlushFromSuccessAndLosesNothing) {
    CreateDirtyCache();
    Fault("cleaning", "run");
    // The last cases are of one block in the middle: the SSD's data begins at 64 KiB.
    const struct {
        const char* fault;
        const char* value;
        const char* counted;
        const char* why;
    } cases[] = {{"write.vg1/volume_1", "fail", "disk_write_errors=", "the volume refused"},
                 {"write.vg1/volume_1", "fail:655360+1", "disk_write_errors=", "the volume refused"},
                 {"read.md3", "fail", "ssd_read_errors=", "write-backs failed, and the SSD has read errors"},
                 {"read.md3", "fail:720896+1", "ssd_read_errors=", "the SSD has read errors"}};
    for (const auto& [fault, value, counted, why] : cases) {
        Fault(fault, value);
        const Ran flush = Tool({"flush", "cachedev_0"});
        EXPECT_EQ(flush.code, 1) << fault;
        EXPECT_THAT(flush.err, HasSubstr("the flush of md3+volume_1 failed; the cache runs on and keeps"));
        EXPECT_THAT(flush.err, HasSubstr(why));
        const auto cache = Answer({"list"})["caches"][0];
        EXPECT_EQ(cache["state"], "running");
        EXPECT_THAT(cache["problem"], HasSubstr("the kernel counts errors of it"));
        EXPECT_GT(DirtyBlocks(), 0) << fault;
        const Ran errors = RunProgram({"cat", "/proc/flashcache/md3+volume_1/flashcache_errors"});
        EXPECT_THAT(errors.out, testing::Not(HasSubstr(std::string(counted) + "0"))) << fault;
        Fault(fault, "ok");
    }
    EXPECT_EQ(Answer({"flush", "cachedev_0"})["flush"]["lost_blocks"], 0);
    EXPECT_EQ(DirtyBlocks(), 0);
    EXPECT_TRUE(VolumeHoldsData());
}

TEST(DiskFault, OfTheSsdKeepsADirtyCacheUp) {
    CreateDirtyCache();
    Fault("write.md3", "fail");
    const Ran unload = Tool({"unload", "cachedev_0"});
    EXPECT_EQ(unload.code, 1);
    EXPECT_THAT(unload.err, HasSubstr("could not be unloaded in order; it is still up"));
    EXPECT_THAT(unload.err, HasSubstr("Input/output error"));
    EXPECT_EQ(DirtyBlocks(), kDirty);
    Fault("write.md3", "ok");
    ASSERT_EQ(Tool({"unload", "cachedev_0"}).code, 0);
    ASSERT_EQ(Tool({"load", "md3+volume_1"}).code, 0);
    EXPECT_EQ(DirtyBlocks(), kDirty);
    Fault("cleaning", "run");
    ASSERT_EQ(Tool({"flush", "cachedev_0"}).code, 0);
    EXPECT_TRUE(VolumeHoldsData());
}

TEST(DiskFault, OfAnSsdThatDiesLeavesACleanCacheToBeReadAndUnloaded) {
    CreateDirtyCache();
    Fault("cleaning", "run");
    ASSERT_EQ(Tool({"flush", "cachedev_0"}).code, 0);
    Fault("read.md3", "fail");
    Fault("write.md3", "fail");
    const std::string read =
        "dd if=/dev/mapper/cachedev_0 bs=64k count=20 iflag=direct status=none | cmp - /tmp/data";
    EXPECT_EQ(RunProgram({"sh", "-c", read}).code, 0);
    EXPECT_EQ(Answer({"list"})["caches"][0]["state"], "running");
    EXPECT_EQ(Tool({"unload", "cachedev_0"}).code, 0);
    EXPECT_EQ(Tool({"load", "md3+volume_1"}).code, 1) << "nothing is known of an SSD that cannot be read";
    EXPECT_TRUE(VolumeHoldsData());
}

}  // namespace
}  // namespace tests
