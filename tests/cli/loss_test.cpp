// Blocks that are lost, with the admin's consent, are counted and told as lost.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cli/tool.h"

namespace tests {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

// The volume refuses the given number of blocks; the kernel gives them up.
void CreateLossyCache(int refused) {
    CreateDirtyCache();
    Fault("writeback", "fail@2x" + std::to_string(refused));
    ASSERT_EQ(Tool({"attribute", "set", "cachedev_0", "force-remove", "--ignore-write-errors"}).code, 0);
    Fault("cleaning", "run");
}

TEST(Loss, OfAFlushIsCountedAndNoSuccess) {
    CreateLossyCache(3);
    const Ran flush = Tool({"flush", "cachedev_0", "--json"});
    EXPECT_EQ(flush.code, 1);
    const auto answer = flush.Json()["flush"];
    EXPECT_EQ(answer["result"], "done");
    EXPECT_EQ(answer["lost_blocks"], 3);
    EXPECT_EQ(answer["lost_bytes"], 3 * 65536);
    EXPECT_FALSE(VolumeHoldsData());

    // What is gone is not lost again; the kernel's old count stands there still.
    const Ran again = Tool({"flush", "cachedev_0", "--json"});
    EXPECT_EQ(again.Json()["flush"]["lost_blocks"], 0) << again.out;
    EXPECT_EQ(again.code, 0);
}

TEST(Loss, OfADeletionIsToldInWords) {
    CreateLossyCache(18);
    const Ran ran = Tool({"delete", "cachedev_0"});
    EXPECT_EQ(ran.code, 1);
    EXPECT_THAT(ran.out, HasSubstr("18 blocks, 1179648 bytes are LOST"));
    EXPECT_THAT(ran.err, Not(HasSubstr("written back")));
    EXPECT_TRUE(Answer({"list"})["caches"].empty());
}

TEST(Loss, OfADeletionIsCountedInJson) {
    CreateLossyCache(4);
    const Ran ran = Tool({"delete", "cachedev_0", "--json"});
    EXPECT_EQ(ran.code, 1);
    EXPECT_EQ(ran.Json()["deleted"]["lost_blocks"], 4);
}

TEST(Loss, ThatCannotBeCountedIsNoSuccess) {
    CreateLossyCache(3);
    Fault("file.flashcache_errors", "rubbish");
    const Ran flush = Tool({"flush", "cachedev_0", "--json"});
    EXPECT_EQ(flush.code, 1);
    EXPECT_TRUE(flush.Json()["flush"]["lost_blocks"].IsNull());
}

TEST(Loss, IsWhatForceRemoveIsSaidToBring) {
    CreateDirtyCache();
    EXPECT_THAT(Tool({"attribute", "set", "cachedev_0", "force-remove"}).err, HasSubstr("LOST"));
    Fault("writeback", "fail");
    Fault("cleaning", "run");
    const Ran flush = Tool({"flush", "cachedev_0"});
    EXPECT_EQ(flush.code, 1);
    EXPECT_THAT(flush.err, HasSubstr("20 dirty blocks"));
    EXPECT_THAT(flush.err, HasSubstr("they are LOST then"));
}

TEST(Loss, OnTheWayDownIsRefused) {
    CreateLossyCache(20);
    Fault("cleaning", "pause");
    const Ran ran = Tool({"unload", "cachedev_0"});
    EXPECT_EQ(ran.code, 1);
    EXPECT_THAT(ran.err, HasSubstr("vemocachectl attribute set md3+volume_1 none"));
    EXPECT_EQ(DirtyBlocks(), kDirty);
}

}  // namespace
}  // namespace tests
