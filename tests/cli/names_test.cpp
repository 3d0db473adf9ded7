// Devices whose paths begin with another's, and devices that cannot be asked: the tool takes none for
// another.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cli/tool.h"

namespace tests {
namespace {

using ::testing::HasSubstr;

// The cache of the pair whose names go on: /dev/md30 in front of /dev/vg1/volume_10.
void CreateLonger() {
    ASSERT_EQ(Tool({"create", "/dev/md30", "/dev/vg1/volume_10", "--size", "32M"}).code, 0);
}

void MakeDirty(const std::string& device) {
    ASSERT_EQ(RunProgram({"dd", "if=/dev/urandom", "of=" + device, "bs=64k", "count=4", "oflag=direct"}).code,
              0);
}

TEST(Names, OfAnotherCacheAreNotTakenDownByACreationThatFails) {
    CreateLonger();
    MakeDirty("/dev/mapper/cachedev_0");
    for (const auto& [fault, value] : kCreationFaults) {
        Fault(fault, value);
        const Ran ran = Tool({"create", "/dev/md3", "/dev/vg1/volume_1", "--size", "32M"});
        EXPECT_EQ(ran.code, 1);
        EXPECT_THAT(ran.err, HasSubstr("could not be created"));
        Fault(fault, "ok");
        const auto caches = Answer({"list"})["caches"];
        ASSERT_EQ(caches.size(), 1U) << fault;
        EXPECT_EQ(caches[0]["state"], "running");
        EXPECT_GT(DirtyBlocks(), 0);
    }
}

TEST(Names, AreToldApartInEveryMode) {
    CreateLonger();
    const Ran created = Tool({"create", "/dev/md3", "/dev/vg1/volume_1", "--size", "32M", "--mode", "thru"});
    EXPECT_THAT(created.out, HasSubstr("use /dev/mapper/cachedev_1 in place of"));
    ASSERT_EQ(Tool({"unload", "cachedev_1"}).code, 0);
    EXPECT_THAT(Tool({"load", "md3+volume_1"}).out, HasSubstr("is up: /dev/mapper/cachedev_1"));
    const auto caches = Answer({"list"})["caches"];
    EXPECT_EQ(caches[0]["device"], "/dev/mapper/cachedev_0");
    EXPECT_EQ(caches[1]["device"], "/dev/mapper/cachedev_1");
}

TEST(Names, KeepAnExpansionFromAnotherCache) {
    CreateLonger();
    CreateCache();
    const Ran refused = Tool({"expand", "md3+volume_1"});
    EXPECT_EQ(refused.code, 1);
    EXPECT_THAT(refused.err, HasSubstr("cannot be expanded while md30+volume_10 runs"));
    EXPECT_THAT(refused.err, HasSubstr("vemocachectl unload md30+volume_10"));
    EXPECT_EQ(Tool({"expand", "md30+volume_10"}).code, 0);
    ASSERT_EQ(Tool({"unload", "md30+volume_10"}).code, 0);
    EXPECT_EQ(Tool({"expand", "md3+volume_1"}).code, 0);
}

TEST(Names, ThatTheKernelCouldNotKeepApartAreRefused) {
    CreateCache();
    EXPECT_THAT(Tool({"create", "/dev/vg2/md3", "/dev/vg2/volume_1"}).err,
                HasSubstr("cannot tell this cache from md3+volume_1"));
    EXPECT_THAT(Tool({"create", "/dev/md5", "/dev/vg2/a-volume+with-a-name-of-its-own"}).err,
                HasSubstr("too long together"));
    EXPECT_THAT(Tool({"create", "/dev/md6", "/dev/vg2/volume.1"}).err, HasSubstr("has a \".\""));
}

}  // namespace
}  // namespace tests
