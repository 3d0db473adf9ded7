// A flush whose process was killed is told from one that runs, and what it left is mended.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>

#include "cli/tool.h"

namespace tests {
namespace {

using ::testing::HasSubstr;

Json Status() {
    return Answer({"flush", "--status", "cachedev_0"})["flush"];
}

void AwaitRecord() {
    while (Status()["flush_state"] != "flushing") {
    }
}

void CreateDeadFlush() {
    CreateDirtyCache();
    RunningTool killed({"flush", "cachedev_0", "--json"});
    AwaitRecord();
    EXPECT_EQ(Status()["running"], true);
}

void ExpectNormal() {
    EXPECT_EQ(Status()["flush_state"], "normal");
    EXPECT_EQ(Status()["handle_state"], "normal");
    EXPECT_EQ(Status()["running"], false);
    EXPECT_EQ(DirtyBlocks(), kDirty);
}

TEST(DeadFlush, IsSeenByItsStatus) {
    CreateDeadFlush();
    EXPECT_EQ(Status()["running"], false);
    EXPECT_EQ(Status()["flush_state"], "flushing");
    EXPECT_THAT(Answer({"list"})["caches"][0]["problem"], HasSubstr("no process runs it"));
    EXPECT_THAT(Tool({"flush", "--status", "cachedev_0"}).out, HasSubstr("vemocachectl flush --cancel"));
    const Ran follow = Tool({"flush", "--status", "--follow", "cachedev_0"});
    EXPECT_EQ(follow.code, 1);
    EXPECT_THAT(follow.err, HasSubstr("no vemocachectl runs it"));
    EXPECT_THAT(follow.err, HasSubstr("vemocachectl flush --cancel md3+volume_1"));
}

class DeadFlushWays : public ::testing::TestWithParam<Words> {};

// Killed between two knobs of its state, a flush leaves those of a repair.
TEST_P(DeadFlushWays, LeadToNormalFromHalfOfItsStateToo) {
    CreateDeadFlush();
    ASSERT_EQ(Tool({"knob", "set", "cachedev_0", "cache_all", "0"}).code, 0);
    ASSERT_EQ(Tool({"knob", "set", "cachedev_0", "do_sync", "0"}).code, 0);
    ASSERT_EQ(Status()["handle_state"], "repairing");
    Fault("cleaning", "run");
    EXPECT_EQ(Tool(GetParam()).code, 0);
    EXPECT_EQ(Status()["flush_state"], "normal");
    EXPECT_EQ(Status()["handle_state"], "normal");
}

INSTANTIATE_TEST_SUITE_P(All, DeadFlushWays,
                         ::testing::Values(Words{"flush", "cachedev_0"},
                                           Words{"flush", "--cancel", "cachedev_0"}));

TEST(DeadFlush, EndsItsFollowerToo) {
    CreateDirtyCache();
    RunningTool flush({"flush", "cachedev_0", "--json"});
    AwaitRecord();
    RunningTool follower({"flush", "--status", "--follow", "cachedev_0", "--json"});
    EXPECT_THAT(follower.NextLine(), HasSubstr("progress"));
    flush.Signal(SIGKILL);
    EXPECT_EQ(follower.Wait(), 1);
}

TEST(DeadFlush, IsMendedByItsCancellation) {
    CreateDeadFlush();
    const Ran cancel = Tool({"flush", "--cancel", "cachedev_0"});
    EXPECT_EQ(cancel.code, 0) << cancel.err;
    EXPECT_THAT(cancel.out, HasSubstr("had no process any more"));
    ExpectNormal();
}

TEST(DeadFlush, IsMendedByTheStateNormal) {
    CreateDeadFlush();
    EXPECT_EQ(Tool({"state", "set", "cachedev_0", "normal"}).code, 0);
    ExpectNormal();
}

TEST(DeadFlush, BegunAgainAndCancelledLeavesTheStateNormal) {
    CreateDeadFlush();
    RunningTool again({"flush", "cachedev_0", "--json"});
    while (Status()["running"] != true) {
    }
    again.NextLine();
    again.Signal(SIGTERM);
    EXPECT_EQ(again.Wait(), 1);
    ExpectNormal();
}

TEST(LiveFlush, KeepsOthersFromItsCache) {
    CreateDirtyCache();
    RunningTool flush({"flush", "cachedev_0", "--json"});
    AwaitRecord();
    const std::vector<Words> verbs = {{"state", "set", "cachedev_0", "normal"},
                                      {"unload", "cachedev_0"},
                                      {"delete", "cachedev_0", "--discard-dirty"}};
    for (auto words : verbs) {
        words.emplace_back("--json");
        const Ran ran = Tool(words);
        EXPECT_EQ(ran.code, 1);
        EXPECT_EQ(ran.Json()["error"]["kind"], "in_use") << ran.out;
        EXPECT_THAT(ran.Json()["error"]["advice"], HasSubstr("flush --cancel md3+volume_1"));
    }
    EXPECT_EQ(Status()["running"], true);
    EXPECT_EQ(DirtyBlocks(), kDirty);
}

}  // namespace
}  // namespace tests
