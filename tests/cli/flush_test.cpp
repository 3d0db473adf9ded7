// Flush, its cancellation from within and without, deletion and expansion.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>

#include "cli/tool.h"

namespace tests {
namespace {

using ::testing::HasSubstr;

// The last object that it prints.
Json LastAnswer(RunningTool& tool) {
    Json last;
    for (std::string line = tool.NextLine(); !line.empty(); line = tool.NextLine()) {
        last = Json::Parse(line);
    }
    return last;
}

TEST(Flush, TellsItsProgressAndItsEnd) {
    CreateDirtyCache();
    RunningTool flush({"flush", "cachedev_0", "--json"});
    const auto first = Json::Parse(flush.NextLine());
    EXPECT_EQ(first["progress"]["dirty_blocks"], kDirty);
    EXPECT_FALSE(VolumeHoldsData());
    RunningTool follower({"flush", "--status", "--follow", "cachedev_0", "--json"});
    Fault("cleaning", "run");
    const Json last = LastAnswer(flush);
    EXPECT_EQ(flush.Wait(), 0);
    EXPECT_EQ(last["flush"]["result"], "done");
    EXPECT_EQ(last["flush"]["flush_state"], "normal");
    EXPECT_EQ(last["flush"]["handle_state"], "normal");
    EXPECT_EQ(last["flush"]["dirty_blocks"], 0);
    EXPECT_TRUE(VolumeHoldsData());
    EXPECT_EQ(follower.Wait(), 0);
}

TEST(Flush, IsCancelledByCtrlC) {
    CreateDirtyCache();
    // An impatient admin must not do harm: the tools that the flush runs never see the keys.
    const Ran ran = ToolOnTerminal({"flush", "cachedev_0"}, "20 blocks (1.2 MiB) left", "\x03\x03\x03");
    EXPECT_EQ(ran.code, 1);
    EXPECT_THAT(ran.out, HasSubstr("[........................]"));
    EXPECT_THAT(ran.out, HasSubstr("Cancelled; md3+volume_1 is as it was before."));
    const auto cache = Answer({"status", "cachedev_0"})["caches"][0];
    EXPECT_EQ(cache["handle_state"], "normal");
    EXPECT_EQ(cache["flush_state"], "normal");
    EXPECT_EQ(cache["dirty_blocks"], kDirty);
}

TEST(Flush, EndsAsCancelledInJsonToo) {
    CreateDirtyCache();
    RunningTool flush({"flush", "cachedev_0", "--json"});
    flush.NextLine();
    flush.Signal(SIGTERM);
    const Json last = LastAnswer(flush);
    EXPECT_EQ(flush.Wait(), 1);
    EXPECT_EQ(last["flush"]["result"], "cancelled");
    EXPECT_EQ(last["flush"]["handle_state"], "normal");
}

TEST(Flush, IsSeenAndCancelledFromAnotherProcess) {
    CreateDirtyCache();
    RunningTool flush({"delete", "cachedev_0", "--json"});
    while (Answer({"flush", "--status", "cachedev_0"})["flush"]["flush_state"] != "flushing") {
    }
    const Ran second = Tool({"flush", "cachedev_0"});
    EXPECT_EQ(second.code, 1);
    EXPECT_THAT(second.err, HasSubstr("a flush of md3+volume_1 runs"));
    EXPECT_EQ(Answer({"flush", "--cancel", "cachedev_0"})["flush"]["handle_state"], "normal");
    EXPECT_EQ(flush.Wait(), 1);
    // The deletion stopped with its flush: the cache is up and keeps what is dirty.
    EXPECT_EQ(DirtyBlocks(), kDirty);
    EXPECT_EQ(Tool({"flush", "--cancel", "cachedev_0"}).code, 1);
}

TEST(Flush, ThatWasKilledCanBeBegunAgain) {
    CreateDirtyCache();
    {
        RunningTool killed({"flush", "cachedev_0", "--json"});
        while (Answer({"flush", "--status", "cachedev_0"})["flush"]["flush_state"] != "flushing") {
        }
    }
    Fault("cleaning", "run");
    const Ran again = Tool({"flush", "cachedev_0"});
    EXPECT_EQ(again.code, 0) << again.err;
    EXPECT_THAT(again.err, HasSubstr("an earlier flush of md3+volume_1 did not end in order"));
    EXPECT_TRUE(VolumeHoldsData());
    EXPECT_EQ(Answer({"state", "get", "cachedev_0"})["state"]["handle_state"], "normal");
}

TEST(Flush, LeavesTheStateOfAFlushOnRequestAlone) {
    CreateDirtyCache();
    Fault("cleaning", "run");
    const auto kept = Answer({"flush", "cachedev_0", "--keep"})["flush"];
    EXPECT_EQ(kept["flush_state"], "flush_done");
    EXPECT_EQ(kept["handle_state"], "flush");
    EXPECT_THAT(Tool({"flush", "--cancel", "cachedev_0"}).err, HasSubstr("done already"));
    // The state before a second one is not that which the first one left.
    const auto again = Answer({"flush", "cachedev_0"})["flush"];
    EXPECT_EQ(again["flush_state"], "normal");
    EXPECT_EQ(again["handle_state"], "normal");
}

struct Ended {
    Words option;
    int cleaned;  // blocks that come clean
    int code;
    const char* result;
    const char* reason;  // its beginning; empty: none
};

void PrintTo(const Ended& one, std::ostream* out) {
    *out << one.result;
}

class FlushEnds : public ::testing::TestWithParam<Ended> {};

TEST_P(FlushEnds, BeforeAllIsCleanAndLeavesTheRest) {
    const Ended& one = GetParam();
    CreateDirtyCache();
    Words words = {"flush", "cachedev_0", "--json"};
    words.insert(words.end(), one.option.begin(), one.option.end());
    RunningTool running(words);
    // The flush is recorded before the kernel has begun with it, and counts from then.
    while (Answer({"flush", "--status", "cachedev_0"})["flush"]["handle_state"] != "flush") {
    }
    Fault("cleaning", std::to_string(one.cleaned));
    const auto flush = LastAnswer(running)["flush"];
    EXPECT_EQ(running.Wait(), one.code);
    EXPECT_EQ(flush["result"], one.result);
    EXPECT_THAT(std::string(flush["reason"]), HasSubstr(one.reason));
    EXPECT_EQ(flush["flush_state"], "normal");
    EXPECT_EQ(flush["handle_state"], "normal");
    EXPECT_EQ(flush["dirty_blocks"], kDirty - one.cleaned);
    EXPECT_EQ(flush["lost_blocks"], 0);
    Fault("cleaning", "run");
    EXPECT_EQ(Answer({"flush", "cachedev_0"})["flush"]["result"], "done");
    EXPECT_TRUE(VolumeHoldsData());
}

INSTANTIATE_TEST_SUITE_P(Plans, FlushEnds,
                         ::testing::Values(Ended{{"--deadline", "4s"}, 0, 0, "deadline", ""},
                                           Ended{
                                               {"--stall", "3"}, 0, 4, "stalled", "no block came clean for"},
                                           Ended{{"--until", "25"}, 5, 0, "until", ""}),
                         [](const auto& info) { return info.param.result; });

TEST(FlushTimes, AreSpansOrTimesOfTheDay) {
    for (const char* bad : {"", "soon", "24:00", "6:00", "06:60", "-5m", "5", "5x", "0s", "400d"}) {
        EXPECT_EQ(Tool({"flush", "cachedev_0", "--deadline", bad}).code, kUsage) << bad;
    }
}

TEST(Flush, ThatTheVolumeRefusesLeavesTheCacheRunning) {
    CreateDirtyCache();
    Fault("writeback", "fail");
    Fault("cleaning", "run");
    const Ran ran = Tool({"delete", "cachedev_0"});
    EXPECT_EQ(ran.code, 1);
    EXPECT_THAT(ran.err, HasSubstr("the volume refused"));
    const auto cache = Answer({"status", "cachedev_0"})["caches"][0];
    EXPECT_EQ(cache["handle_state"], "normal");
    EXPECT_EQ(cache["dirty_blocks"], kDirty);

    ASSERT_EQ(Tool({"attribute", "set", "cachedev_0", "force-remove", "--ignore-write-errors"}).code, 0);
    EXPECT_EQ(Answer({"attribute", "get", "cachedev_0"})["attribute"]["attribute"], "force-remove");
    Fault("writeback", "ok");
    EXPECT_EQ(Tool({"delete", "cachedev_0"}).code, 0);
    EXPECT_TRUE(VolumeHoldsData());
}

TEST(Delete, JudgesAgainWhatChangedDuringItsQuestion) {
    CreateDirtyCache();
    const Ran ran = ToolOnTerminal(
        {"delete", "--fast", "cachedev_0"}, "Type \"yes\" to go on: ", std::function<std::string()>([] {
            // The question holds no lock, and more becomes dirty while it stands.
            EXPECT_EQ(RunProgram({"dd", "if=/dev/urandom", "of=/dev/mapper/cachedev_0", "bs=64k", "count=8",
                                  "seek=100", "oflag=direct"})
                          .code,
                      0);
            EXPECT_EQ(Tool({"config", "remove", "nothing"}).code, 1);
            return std::string("yes\n");
        }));
    EXPECT_EQ(ran.code, 1);
    EXPECT_THAT(ran.out, HasSubstr("it holds 28 dirty blocks now, and 20 were agreed to be lost"));
    EXPECT_EQ(DirtyBlocks(), 28);
}

TEST(Unload, OfAllLeavesNoneUpForAnother) {
    CreateDirtyCache();
    ASSERT_EQ(Tool({"create", "/dev/md4", "/dev/vg1/volume_2", "--size", "32M"}).code, 0);
    ASSERT_EQ(RunProgram({"mkfs.ext4", "-q", "/dev/mapper/cachedev_1"}).code, 0);
    ASSERT_EQ(RunProgram({"mount", "/dev/mapper/cachedev_1", "/mnt"}).code, 0);
    const Json some = Answer({"unload", "--all"}, 1)["caches"];
    EXPECT_EQ(some[0]["dirty_blocks_left"], kDirty);
    EXPECT_TRUE(some[0]["problem"].IsNull());
    EXPECT_THAT(std::string(some[1]["problem"]), HasSubstr("it is mounted on /mnt"));
    ASSERT_EQ(RunProgram({"umount", "/mnt"}).code, 0);
    EXPECT_EQ(Answer({"unload", "--all"})["caches"].size(), 1U);
    EXPECT_EQ(Answer({"unload", "--all"})["caches"].size(), 0U);
    EXPECT_EQ(Tool({"unload"}).code, kUsage);
    ASSERT_EQ(Tool({"load", "--all"}).code, 0);
    EXPECT_EQ(DirtyBlocks(), kDirty);
}

TEST(Unload, TellsWhatStaysOnTheSsd) {
    CreateDirtyCache();
    const Ran ran = Tool({"unload", "cachedev_0", "--json"});
    EXPECT_EQ(ran.Json()["unloaded"]["dirty_blocks_left"], kDirty);
    EXPECT_EQ(ran.Json()["unloaded"]["dirty_bytes_left"], kDirty * 65536);
    ASSERT_EQ(Tool({"load", "md3+volume_1"}).code, 0);
    EXPECT_THAT(Tool({"unload", "cachedev_0"}).out, HasSubstr("stale"));
}

TEST(Delete, LosesNothingAndLeavesNoTrace) {
    CreateDirtyCache();
    Fault("cleaning", "run");
    EXPECT_EQ(Answer({"delete", "/volume1"})["deleted"]["name"], "md3+volume_1");
    EXPECT_TRUE(VolumeHoldsData());
    EXPECT_TRUE(Answer({"list"})["caches"].empty());
    EXPECT_EQ(Answer({"modules"})["modules"][1]["loaded"], false);
    // Blocks of the old cache still lie behind its wiped metadata: they are not called blank.
    EXPECT_EQ(Tool({"create", "/dev/md3", "/dev/vg1/volume_1", "--size", "64M"}).code, 1);
    EXPECT_EQ(Tool({"create", "/dev/md3", "/dev/vg1/volume_1", "--size", "64M", "--discard-content"}).code,
              0);
}

TEST(Delete, DropsDirtyBlocksWithConsentAlone) {
    CreateDirtyCache();
    EXPECT_EQ(Tool({"delete", "cachedev_0", "--fast"}).code, 1);
    const auto deleted = Answer({"delete", "cachedev_0", "--discard-dirty"})["deleted"];
    EXPECT_EQ(deleted["lost_blocks"], kDirty);
    EXPECT_EQ(deleted["lost_bytes"], kDirty * 65536);
    EXPECT_FALSE(VolumeHoldsData());
    EXPECT_TRUE(Answer({"list"})["caches"].empty());
}

TEST(Delete, TellsWhatWasDroppedByConsent) {
    CreateDirtyCache();
    const Ran ran = Tool({"delete", "cachedev_0", "--fast", "--discard-dirty"});
    EXPECT_EQ(ran.code, 0);
    EXPECT_THAT(ran.out, HasSubstr("20 blocks, 1310720 bytes are LOST: they were dropped, as agreed."));
}

TEST(Delete, OfABrokenCacheNeedsConsent) {
    CreateDirtyCache();
    Fault("file.flashcache_stats", "rubbish");
    const Ran ran = Tool({"delete", "cachedev_0"});
    EXPECT_EQ(ran.code, 1);
    EXPECT_THAT(ran.err, HasSubstr("whether it holds dirty blocks is not known"));
    EXPECT_EQ(Tool({"delete", "cachedev_0", "--discard-dirty"}).code, 0);
    EXPECT_TRUE(Answer({"list"})["caches"].empty());
}

TEST(Delete, WipesTheSsdInEveryMode) {
    for (const char* mode : {"thru", "around", "back"}) {
        ASSERT_EQ(Tool({"create", "/dev/md3", "/dev/vg1/volume_1", "--size", "32M", "--mode", mode}).code, 0);
        EXPECT_EQ(Tool({"delete", "cachedev_0"}).code, 0);
        EXPECT_TRUE(Answer({"list"})["caches"].empty()) << mode;
        EXPECT_EQ(Answer({"probe", "/dev/md3"}, kNo)["probe"]["has_metadata"], false) << mode;
    }
}

TEST(Delete, StoppedAtTheRemovalCanBeRepeated) {
    CreateCache();
    Fault("remove", "busy");
    const Ran ran = Tool({"delete", "cachedev_0"});
    EXPECT_EQ(ran.code, 1);
    EXPECT_THAT(ran.err, HasSubstr("its device is still up"));
    EXPECT_EQ(Answer({"config", "list"})["entries"].size(), 1U);
    Fault("remove", "ok");
    EXPECT_EQ(Tool({"delete", "cachedev_0"}).code, 0);
}

TEST(Expand, FollowsTheVolume) {
    CreateCache();
    ASSERT_EQ(RunProgram({VEMO_APPLIANCE_PATH, "grow", "/dev/vg1/volume_1", "3G"}).code, 0);
    const auto expanded = Answer({"expand", "cachedev_0"})["expanded"];
    EXPECT_EQ(expanded["device_size_bytes"], std::uint64_t{3} << 30);
    EXPECT_LT(expanded["former_device_size_bytes"].Number(), expanded["device_size_bytes"].Number());
    EXPECT_THAT(Tool({"expand", "cachedev_0"}).out, HasSubstr("already"));
}

}  // namespace
}  // namespace tests
