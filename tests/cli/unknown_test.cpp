// Caches that cannot be described, and what is wrong with those that can.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cli/tool.h"

namespace tests {
namespace {

using ::testing::HasSubstr;

TEST(Unknown, IsNotUnloadedAndLosesNothing) {
    CreateCache();
    Fault("tool.dmsetup", "fail");
    const auto caches = Answer({"list"})["caches"];
    ASSERT_EQ(caches.size(), 2U);  // the entry, and a device that may be any cache
    EXPECT_EQ(caches[0]["name"], "md3+volume_1");
    EXPECT_EQ(caches[0]["state"], "unknown");
    EXPECT_EQ(caches[1]["state"], "unknown");
    const std::vector<Words> losing = {
        {"config", "remove", "md3+volume_1", "--forget-cache"},
        {"wipe", "/dev/md3", "--discard-metadata"},
        {"delete", "md3+volume_1", "--discard-dirty"},
        {"load", "md3+volume_1"},
        {"create", "/dev/md4", "/dev/vg1/volume_2", "--size", "32M"},
    };
    for (auto words : losing) {
        words.emplace_back("--json");
        const Ran ran = Tool(words);
        EXPECT_EQ(ran.code, 1) << words[0];
        EXPECT_EQ(ran.Json()["error"]["kind"], "unknown_state") << words[0] << ran.out;
    }
    Fault("tool.dmsetup", "ok");
    EXPECT_EQ(Answer({"list"})["caches"][0]["state"], "running");
}

TEST(Unknown, StatusKeepsTheEntryOfItsRow) {
    CreateCache();
    Fault("file.flashcache_stats", "rubbish");
    const auto caches = Answer({"list"})["caches"];
    ASSERT_EQ(caches.size(), 1U);
    EXPECT_EQ(caches[0]["name"], "md3+volume_1");
    EXPECT_EQ(caches[0]["state"], "unknown");
    EXPECT_EQ(caches[0]["write_mode"], "back");
}

TEST(Problems, AreToldOfEachCache) {
    CreateCache();
    EXPECT_TRUE(Answer({"list"})["caches"][0]["problem"].IsNull());
    ASSERT_EQ(Tool({"state", "set", "cachedev_0", "stop-writeback"}).code, 0);
    EXPECT_THAT(Answer({"list"})["caches"][0]["problem"], HasSubstr("state set md3+volume_1 normal"));
    ASSERT_EQ(Tool({"state", "set", "cachedev_0", "normal"}).code, 0);
    ASSERT_EQ(Tool({"attribute", "set", "cachedev_0", "force-remove", "--ignore-write-errors"}).code, 0);
    EXPECT_THAT(Answer({"list"})["caches"][0]["problem"], HasSubstr("attribute set md3+volume_1 none"));
    ASSERT_EQ(Tool({"unload", "cachedev_0"}).code, 0);
    EXPECT_THAT(Answer({"list"})["caches"][0]["problem"], HasSubstr("load it before the volume is used"));
    ASSERT_EQ(Tool({"load", "md3+volume_1"}).code, 0);
    ASSERT_EQ(Tool({"attribute", "set", "cachedev_0", "none"}).code, 0);
    ASSERT_EQ(Tool({"create", "/dev/md4", "/dev/vg1/volume_2", "--size", "32M", "--mode", "thru"}).code, 0);
    EXPECT_TRUE(Answer({"list"})["caches"][1]["problem"].IsNull())
        << "counters are not to be had, nothing is wrong";
}

}  // namespace
}  // namespace tests
