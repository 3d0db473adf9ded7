#include <cstdlib>

#include "support/library_test.h"

namespace {

using spy::Answer;
using spy::ToolRun;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kSsd = "/dev/md3";
constexpr const char* kSpace = "/dev/vg0/lv0";

class SysctlTest : public LibraryTest {
  protected:
    void AnswerAll(const Answer& answer) {
        spy::state().answer = [answer](const ToolRun&) { return answer; };
    }
    static ToolRun Write(const char* assignment) { return {"/sbin/sysctl", "", {assignment}}; }
};

TEST_F(SysctlTest, DeviceNameJoinsTheLastComponents) {
    char* name = VEMOFlashCacheSysctlDevNameGet(kSsd, kSpace);
    EXPECT_STREQ(name, "md3+lv0");
    std::free(name);
}

TEST_F(SysctlTest, PathsOutsideDevAreRefusedWithoutRunningAnything) {
    int32_t value = 7;
    EXPECT_EQ(VEMOFlashCacheSysctlGet(FLASHCACHE_SYSCTL_CACHE_ALL, "md3", kSpace, &value), -1);
    EXPECT_EQ(VEMOFlashCacheDoSysctlSet(FLASHCACHE_SYSCTL_CACHE_ALL, 1, kSsd, "/mnt/x"), -1);
    EXPECT_EQ(VLIBCErrGet(), 0x0D00);
    EXPECT_EQ(value, 7);
    EXPECT_THAT(spy::state().runs, IsEmpty());
    EXPECT_THAT(spy::LoggedTexts(),
                ElementsAre("bad parameter: md3, /dev/vg0/lv0", "Can't get correct dev name",
                            "bad parameter: /dev/md3, /mnt/x"));
}

TEST_F(SysctlTest, ValuesThatNameNoKnobAreRefused) {
    for (const int32_t knob : {0, -1, 17}) {
        VLIBCErrSetEx(0, "", 0);
        int32_t value = 0;
        EXPECT_EQ(VEMOFlashCacheSysctlGet(knob, kSsd, kSpace, &value), -1) << knob;
        EXPECT_EQ(VEMOFlashCacheDoSysctlSet(knob, 1, kSsd, kSpace), -1) << knob;
        EXPECT_EQ(VLIBCErrGet(), 0x0D00) << knob;
    }
    EXPECT_THAT(spy::state().runs, IsEmpty());
}

TEST_F(SysctlTest, ReadsTheFirstLineOfTheAnswer) {
    AnswerAll({0, "dev.flashcache_md3+lv0.cache_all = -3\ndev.flashcache_md3+lv0.cache_all = 9\n"});
    int32_t value = 0;
    EXPECT_EQ(VEMOFlashCacheSysctlGet(FLASHCACHE_SYSCTL_CACHE_ALL, kSsd, kSpace, &value), 0);
    EXPECT_EQ(value, -3);
    EXPECT_THAT(spy::state().runs,
                ElementsAre(ToolRun{"/sbin/sysctl", "r", {"dev.flashcache_md3+lv0.cache_all"}}));
}

TEST_F(SysctlTest, WhatIsNoAnswerLeavesTheValueAlone) {
    const struct {
        Answer answer;
        const char* logged;
    } cases[] = {
        {{0, "", false}, "Popen Fail. Command = /sbin/sysctl dev.flashcache_md3+lv0.do_sync"},
        {{0, ""}, "Get NULL result"},
        {{0, "dev.flashcache_md3+lv1.do_sync = 1\n"},
         "Incorrect Parse Format: format=dev.flashcache_md3+lv0.do_sync = %d "
         "data=dev.flashcache_md3+lv1.do_sync = 1\n"},
        {{0, "dev.flashcache_md3+lv0.do_sync = \n"},
         "Incorrect Parse Format: format=dev.flashcache_md3+lv0.do_sync = %d "
         "data=dev.flashcache_md3+lv0.do_sync = \n"},
    };
    for (const auto& test : cases) {
        spy::state().log.clear();
        AnswerAll(test.answer);
        int32_t value = 42;
        EXPECT_EQ(VEMOFlashCacheSysctlGet(FLASHCACHE_SYSCTL_DO_SYNC, kSsd, kSpace, &value), -1);
        EXPECT_EQ(value, 42);
        EXPECT_THAT(spy::LoggedTexts(), ElementsAre(test.logged, "Sysctl get error"));
    }
}

TEST_F(SysctlTest, TuningWritesWhatThePolicySays) {
    const struct {
        FLASHCACHE_POLICY policy;
        std::vector<ToolRun> runs;
    } cases[] = {
        {{FLASHCACHE_WRITE_BACK, FLASHCACHE_RECLAIM_LRU, 900, 40, 1},
         {Write("dev.flashcache_md3+lv0.dirty_thresh_pct=40"),
          Write("dev.flashcache_md3+lv0.fallow_delay=900"), Write("dev.flashcache_md3+lv0.reclaim_policy=1"),
          Write("dev.flashcache_md3+lv0.fast_remove=1"),
          Write("dev.flashcache_md3+lv0.skip_seq_thresh_kb=1024")}},
        {{FLASHCACHE_WRITE_BACK_CRASH, FLASHCACHE_RECLAIM_FIFO, 0, -1, 0},
         {Write("dev.flashcache_md3+lv0.reclaim_policy=0"), Write("dev.flashcache_md3+lv0.fast_remove=1"),
          Write("dev.flashcache_md3+lv0.skip_seq_thresh_kb=0")}},
        {{FLASHCACHE_WRITE_BACK_BYPASS, FLASHCACHE_RECLAIM_FIFO, 0, 0, 5},
         {Write("dev.flashcache_md3+lv0.reclaim_policy=0"),
          Write("dev.flashcache_md3+lv0.skip_seq_thresh_kb=1024")}},
    };
    for (const auto& test : cases) {
        spy::state().runs.clear();
        AnswerAll({});
        EXPECT_EQ(VEMOFlashCacheSysctlSet(&test.policy, kSsd, kSpace), 0);
        EXPECT_EQ(spy::state().runs, test.runs);
    }
}

TEST_F(SysctlTest, TuningStopsAtTheFirstKnobThatFails) {
    const FLASHCACHE_POLICY policy{FLASHCACHE_WRITE_BACK, FLASHCACHE_RECLAIM_LRU, 900, 40, 1};
    for (std::size_t failing = 0; failing < 5; ++failing) {
        spy::state() = {};
        spy::state().answer = [failing](const ToolRun&) {
            return Answer{spy::state().runs.size() == failing + 1 ? 255 : 0, ""};
        };
        EXPECT_EQ(VEMOFlashCacheSysctlSet(&policy, kSsd, kSpace), -1);
        EXPECT_EQ(spy::state().runs.size(), failing + 1);
        EXPECT_EQ(VLIBCErrGet(), 0x8100);
        EXPECT_EQ(spy::state().log.size(), 2U);
    }
    EXPECT_THAT(spy::LoggedTexts(),
                ElementsAre(testing::MatchesRegex("Sysctl control failed "
                                                  "\\[dev.flashcache_md3\\+lv0.skip_seq_thresh_kb=1024\\], "
                                                  "errno=.*, ret=255"),
                            testing::MatchesRegex("Fail to set skip_seq_io_thresh \\[/dev/md3\\]. "
                                                  "\\[0x8100 flashcache_sysctl_set.cpp:[0-9]+\\]")));
}

}  // namespace
