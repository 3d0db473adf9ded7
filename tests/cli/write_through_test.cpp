// Caches that the library has no status of, and answers that it has none to give.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cli/tool.h"

namespace tests {
namespace {

using ::testing::HasSubstr;

constexpr std::uint64_t kMiB = 1U << 20U;

TEST(WriteThrough, HasASizeAndCountsInTheSum) {
    CreateCache();
    ASSERT_EQ(Tool({"create", "/dev/md4", "/dev/vg1/volume_2", "--size", "32M", "--mode", "thru"}).code, 0);
    EXPECT_EQ(Answer({"size", "md4+volume_2"})["size"]["size_bytes"], 32 * kMiB);
    const auto sum = Answer({"size"})["size"];
    EXPECT_EQ(sum["size_bytes"], 96 * kMiB);
    EXPECT_EQ(sum["is_complete"], true);
    const auto status = Answer({"status", "md4+volume_2"})["caches"][0];
    EXPECT_EQ(status["block_size_bytes"], 65536);
    EXPECT_EQ(status["total_blocks"], 512);
    EXPECT_EQ(status["dirty_bytes"], 0);

    // The kernel's own number goes before that of the entry.
    ASSERT_EQ(RunProgram({"sed", "-i", "s/33554432/999/", "/usr/vemo/etc/flashcache.conf"}).code, 0);
    EXPECT_EQ(Answer({"config", "show", "md4+volume_2"})["entry"]["size_bytes"], 999);
    EXPECT_EQ(Answer({"size", "md4+volume_2"})["size"]["size_bytes"], 32 * kMiB);

    Fault("tool.dmsetup", "fail");
    const auto part = Answer({"size"})["size"];
    EXPECT_EQ(part["size_bytes"], 0);
    EXPECT_EQ(part["is_complete"], false);
    EXPECT_EQ(part["unknown"], "cachedev_0, cachedev_1");
    EXPECT_THAT(Tool({"size"}).out, HasSubstr("Left out, of unknown size"));
}

TEST(WriteThrough, HasNoFlushToCancel) {
    ASSERT_EQ(Tool({"create", "/dev/md3", "/dev/vg1/volume_1", "--size", "32M", "--mode", "thru"}).code, 0);
    const auto error = Tool({"flush", "--cancel", "cachedev_0", "--json"}).Json()["error"];
    EXPECT_EQ(error["kind"], "not_found");
    EXPECT_THAT(error["reason"], HasSubstr("in its mode it has no dirty blocks"));
}

TEST(UnknownAnswer, IsNoNo) {
    CreateCache();
    // The tool that looks for a cache is broken; the SSD itself shows one.
    Fault("tool.flashcache_load", "fail");
    EXPECT_EQ(Answer({"probe", "/dev/md3"})["probe"]["has_metadata"], true);
    EXPECT_EQ(Tool({"probe", "/dev/md4", "--json"}).Json()["probe"]["has_metadata"], false);
    Fault("tool.flashcache_destroy", "fail");
    EXPECT_EQ(Answer({"delete", "cachedev_0"})["deleted"]["ssd_wiped"], false);

    EXPECT_EQ(Tool({"ssd", "check", "NONE", "480G"}).code, 3);
    EXPECT_EQ(Tool({"apm", "get", "k"}).code, 3);
    EXPECT_EQ(Answer({"modules"})["modules"][0]["loaded"].IsBool(), true);
    ASSERT_EQ(RunProgram({"rm", "/etc.defaults/support_ssd.db"}).code, 0);
    ASSERT_EQ(RunProgram({"sh", "-c", "rm -r /var/run/ssd-cache; touch /var/run/ssd-cache"}).code, 0);
    const Ran ssd = Tool({"ssd", "check", "NONE", "480G", "--json"});
    EXPECT_EQ(ssd.code, 1);
    EXPECT_TRUE(ssd.Json()["ssd"]["supported"].IsNull());
    const Ran apm_flush = Tool({"apm", "get", "k", "--json"});
    EXPECT_EQ(apm_flush.code, 1);
    EXPECT_TRUE(apm_flush.Json()["apm_flush"]["done"].IsNull());
}

}  // namespace
}  // namespace tests
