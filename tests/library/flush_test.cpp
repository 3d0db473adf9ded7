#include <chrono>

#include "support/appliance.h"

namespace {

using namespace appliance;
using spy::Answer;
using spy::ToolRun;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

using Texts = std::vector<std::string>;

constexpr int kBlocks = 40;
constexpr const char* kStarted = "Start flush (force remove = 0, original state = Normal)";
constexpr const char* kRollBack = "Roll back config to norml (non-flush) state";

Texts EnterFlush() {
    return {"cache_all=0", "max_clean_ios_total=20", "max_clean_ios_set=10", "do_sync=1"};
}

Texts EnterNormal() {
    return {"max_clean_ios_total=4", "max_clean_ios_set=2", "cache_all=1", "stop_sync=1", "do_sync=0"};
}

Texts Joined(Texts first, const Texts& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

// A cache with dirty blocks, which the kernel cleans as the test says.
class FlushTest : public CacheTest {
  protected:
    void SetUp() override {
        CacheTest::SetUp();
        Begin();
        SetFault("cleaning", "pause");
        WriteBlocks(kCache, kBlocks);
    }
    static void CleanInPauses(int blocks) {
        spy::state().onSleep = [blocks] { SetFault("cleaning", std::to_string(blocks)); };
    }
    static FLASHCACHE_HANDLE_STATE HandleState() { return VEMOFlashCacheHandleStateGet(kSsd, kSpace); }
    // Whatever made the flush fail, the cache is as before, and a flush without the fault comes to its end.
    static void ExpectRolledBack() {
        Forget();
        EXPECT_EQ(FlushStateOf(), "normal");
        EXPECT_EQ(HandleState(), FLASHCACHE_HANDLE_STATE_NORMAL);
        EXPECT_EQ(DirtyBlocks(), kBlocks);
        CleanInPauses(kBlocks);
        EXPECT_EQ(VEMOFlashCacheFlush(kCache), 1);
        EXPECT_TRUE(HoldsBlocks(kSpace, kBlocks));
        ASSERT_EQ(SetNormalState(kSsd, kSpace), 0);
        WriteBlocks(kCache, kBlocks);
        Forget();
    }
};

TEST_F(FlushTest, WritesAllBackAndStaysInTheFlushState) {
    std::vector<float> progress;
    spy::state().onSleep = [&] {
        EXPECT_EQ(FlushStateOf(), "flushing");
        progress.push_back(VEMOFlashCacheGetFlushProgress("md3", "volume_1", 0));
        SetFault("cleaning", "10");
    };
    EXPECT_EQ(VEMOFlashCacheFlush(kCache), 1);
    EXPECT_THAT(progress, ElementsAre(0.0F, 25.0F, 50.0F, 75.0F));
    EXPECT_EQ(spy::state().slept, Texts(4, "nanosleep"));
    EXPECT_EQ(KnobWrites(), Joined(EnterFlush(), Texts(4, "do_sync=1")));
    EXPECT_THAT(spy::LoggedTexts(), ElementsAre(kStarted));
    EXPECT_EQ(FlushStateOf(), "flush_done");
    EXPECT_EQ(HandleState(), FLASHCACHE_HANDLE_STATE_FLUSH);
    EXPECT_TRUE(HoldsBlocks(kSpace, kBlocks));
}

TEST_F(FlushTest, WithNothingDirtyTheLoopWritesNoKnob) {
    SetFault("cleaning", std::to_string(kBlocks));
    EXPECT_EQ(VEMOFlashCacheFlush(kCache), 1);
    EXPECT_EQ(KnobWrites(), EnterFlush());
    EXPECT_THAT(spy::state().slept, IsEmpty());
    EXPECT_EQ(FlushStateOf(), "flush_done");
    EXPECT_EQ(VEMOFlashCacheFlushCancel(kCache), 0);
    EXPECT_EQ(FlushStateOf(), "flush_done");
}

TEST_F(FlushTest, LooksEveryFiveSeconds) {
    spy::state().skipSleeps = false;
    spy::state().answer = [](const ToolRun&) -> std::optional<Answer> {
        if (KnobWrites().size() == 5) {  // the loop's own do_sync: the pause comes next
            SetFault("cleaning", std::to_string(kBlocks));
        }
        return std::nullopt;
    };
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(VEMOFlashCacheFlush(kCache), 1);
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    EXPECT_GE(took.count(), 5.0);
    EXPECT_LT(took.count(), 9.0);
}

TEST_F(FlushTest, CachesThatCannotBeFlushed) {
    for (const char* path : {static_cast<const char*>(nullptr), "/dev/mapper/cache_3", "/dev/sdb"}) {
        VLIBCErrSetEx(0, "", 0);
        EXPECT_EQ(VEMOFlashCacheFlush(path), -1);
        EXPECT_EQ(VEMOFlashCacheFlushCancel(path), -1);
        EXPECT_EQ(VLIBCErrGet(), 0x0D00);
    }
    EXPECT_THAT(spy::LoggedTexts(), IsEmpty());
    EXPECT_EQ(VEMOFlashCacheFlush("/dev/mapper/cachedev_3"), -1);
    EXPECT_EQ(VEMOFlashCacheFlushCancel("/dev/mapper/cachedev_3"), -1);
    EXPECT_EQ(VLIBCErrGet(), 0x0600);
    EXPECT_THAT(spy::LoggedTexts().back(),
                MatchesRegex("Failed to get status of flashcache \\[/dev/mapper/cachedev_3\\], "
                             "\\[0x0600 flashcache_flush.cpp:[0-9]+\\]"));
    ASSERT_EQ(VEMOFlashCacheUnload(kCache), 0);
    Begin(FLASHCACHE_WRITE_AROUND);
    EXPECT_EQ(VEMOFlashCacheFlush(kCache), 1);
    EXPECT_EQ(VEMOFlashCacheFlushCancel(kCache), -1);
    EXPECT_THAT(spy::LoggedTexts(), ElementsAre("Not write back mode, cannot cancel"));
    EXPECT_THAT(KnobWrites(), IsEmpty());
    EXPECT_EQ(FlushStateOf(), "");
}

TEST_F(FlushTest, AKnobThatFailsRollsBack) {
    for (int failing = 0; failing < 5; ++failing) {
        FailKnobWrite(failing);
        EXPECT_EQ(VEMOFlashCacheFlush(kCache), -1);
        const Texts all = Joined(EnterFlush(), {"do_sync=1"});
        EXPECT_EQ(KnobWrites(), Joined(Texts(all.begin(), all.begin() + failing + 1), EnterNormal()));
        EXPECT_THAT(spy::LoggedTexts(), Contains(failing < 4 ? "Failed to do flush on SSD cache [/dev/md3]"
                                                             : "Perform do_sync sysctl error"));
        EXPECT_EQ(spy::LoggedTexts().back(), kRollBack);
        ExpectRolledBack();
    }
}

TEST_F(FlushTest, TheRollBackGoesAsFarAsItCan) {
    for (int failing = 0; failing < 9; ++failing) {
        spy::state().onSleep = [] { SetFault("errors", "1"); };
        FailKnobWrite(failing, true);
        EXPECT_EQ(VEMOFlashCacheFlush(kCache), -1);
        EXPECT_EQ(spy::LoggedTexts().back(), "Failed to roll back to orignal state");
        EXPECT_EQ(FlushStateOf(), "normal");
        EXPECT_EQ(DirtyBlocks(), kBlocks);
        Forget();
        ASSERT_EQ(SetNormalState(kSsd, kSpace), 0);
        Forget();
    }
    ExpectRolledBack();
}

TEST_F(FlushTest, WhatCannotBeReadAtTheStartRollsBack) {
    spy::state().answer = [](const ToolRun& run) -> std::optional<Answer> {
        return run.mode == "r" && run.program == "/sbin/sysctl" ? std::optional(Answer{1, ""}) : std::nullopt;
    };
    EXPECT_EQ(VEMOFlashCacheFlush(kCache), -1);
    EXPECT_THAT(KnobWrites(), IsEmpty());
    EXPECT_THAT(spy::LoggedTexts(), ElementsAre("Get NULL result", "Sysctl get error",
                                                "Failed to get original handle state", kRollBack));
    ExpectRolledBack();

    SetFault("file.flashcache_attribute", "forced");
    EXPECT_EQ(VEMOFlashCacheFlush(kCache), -1);
    EXPECT_THAT(spy::LoggedTexts(),
                ElementsAre("Incorrect attribute = <forced>", "Failed to get attribute", kRollBack));
    SetFault("file.flashcache_attribute", "ok");
    ExpectRolledBack();

    const std::string copy = ReadWhole(kConfigCopy);
    WriteWhole(kConfigCopy, "");
    EXPECT_EQ(VEMOFlashCacheFlush(kCache), -1);
    EXPECT_THAT(KnobWrites(), IsEmpty());
    const char* const noEntry = "Fail to get config of SSD cache [/dev/md3]";
    EXPECT_THAT(spy::LoggedTexts(), ElementsAre(noEntry, "Failed to set state of SSD cache [/dev/md3]",
                                                kRollBack, noEntry, "Unable to roll back to normal"));
    WriteWhole(kConfigCopy, copy);
}

TEST_F(FlushTest, FailedWriteBacksEndItUnlessRemovalIsForced) {
    spy::state().onSleep = [] {
        SetFault("writeback", "fail");
        SetFault("cleaning", "10");
    };
    EXPECT_EQ(VEMOFlashCacheFlush(kCache), -1);
    EXPECT_THAT(spy::LoggedTexts(), ElementsAre(kStarted, "Failed to flush dirty blocks", kRollBack));
    SetFault("writeback", "ok");
    ExpectRolledBack();

    ASSERT_EQ(VEMOFlashCacheAttributeSet(kSsd, kSpace, FLASHCACHE_ATTRIBUTE_FORCE_REMOVE), 0);
    WriteBlocks(kCache, kBlocks, 'z');
    spy::state().onSleep = [] {
        SetFault("writeback", "failx3");
        SetFault("cleaning", "25");
    };
    EXPECT_EQ(VEMOFlashCacheFlush(kCache), 1);
    EXPECT_EQ(spy::LoggedTexts().front(), "Start flush (force remove = 1, original state = Normal)");
    EXPECT_EQ(spy::state().slept.size(), 2U);
    EXPECT_EQ(DirtyBlocks(), 0);
    EXPECT_FALSE(HoldsBlocks(kSpace, kBlocks, 'z'));  // six blocks were given up
}

TEST_F(FlushTest, ErrorCountsThatCannotBeReadEndIt) {
    const struct {
        std::string text, logged;
    } cases[] = {
        {"", "Failed to get proc entry"},
        {"write_disk_sync_errors=0\nthe last line\n", "Parse key failed"},
        {"x write_disk_sync_errors=y", "Can't find the match pattern (line=write_disk_sync_errors=y)"},
        {std::string(90000, 'e'), "Parse key failed"},
        {"write_disk_sync_errors=-1", "Failed to flush dirty blocks"},
        {"write_disk_sync_errors=4294967296", "Failed to flush dirty blocks"}};
    Touch("/tmp/cache-debug-remove");
    EXPECT_EQ(VEMOFlashCacheIsDebug(0), 1);
    EXPECT_EQ(VEMOFlashCacheIsDebug(1), 0);
    for (const auto& test : cases) {
        SetFault("file.flashcache_errors", test.text);
        EXPECT_EQ(VEMOFlashCacheFlush(kCache), -1) << test.text.substr(0, 80);
        EXPECT_THAT(spy::LoggedTexts(), Contains(test.logged));
        EXPECT_THAT(spy::LoggedTexts(), Contains("Failed to flush dirty blocks"));
        Forget();
    }
    SetFault("file.flashcache_errors", "ok");
    CleanInPauses(kBlocks);
    EXPECT_EQ(VEMOFlashCacheFlush(kCache), 1);
    EXPECT_THAT(spy::LoggedTexts(), ElementsAre(kStarted, "Error count=0 ret=0"));
}

TEST_F(FlushTest, ProgressOtherThanAHundredIsWaitedFor) {
    Texts texts = {"",
                   "rubbish",
                   "initial_num_of_dirty=5",
                   "initial_num_of_dirty=4294967296 remaining_num_of_dirty=5",
                   "initial_num_of_dirty=5 remaining_num_of_dirty=900",
                   "initial_num_of_dirty=1000 remaining_num_of_dirty=1",
                   "initial_num_of_dirty=10 remaining_num_of_dirty=-1",
                   "ok"};
    spy::state().onSleep = [&, next = texts.begin()]() mutable {
        SetFault("file.flashcache_progress", *next++);
        if (next == texts.end()) {
            SetFault("cleaning", std::to_string(kBlocks));
        }
    };
    EXPECT_EQ(VEMOFlashCacheFlush(kCache), 1);
    EXPECT_EQ(spy::state().slept.size(), texts.size());
    EXPECT_TRUE(HoldsBlocks(kSpace, kBlocks));
}

}  // namespace
