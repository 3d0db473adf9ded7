#include "support/appliance.h"

namespace {

using namespace appliance;
using spy::Answer;
using spy::ToolRun;
using testing::ElementsAre;
using testing::IsEmpty;

using HandleStateTest = CacheTest;

const struct {
    FLASHCACHE_HANDLE_STATE state;
    int (*set)(const char*, const char*);
    std::vector<std::string> writes;
} kStates[] = {
    {FLASHCACHE_HANDLE_STATE_FLUSH,
     SetFlushState,
     {"cache_all=0", "max_clean_ios_total=20", "max_clean_ios_set=10", "do_sync=1"}},
    {FLASHCACHE_HANDLE_STATE_NORMAL,
     SetNormalState,
     {"max_clean_ios_total=4", "max_clean_ios_set=2", "cache_all=1", "stop_sync=1", "do_sync=0"}},
    {FLASHCACHE_HANDLE_STATE_REPAIRING,
     SetRepairingState,
     {"cache_all=0", "stop_sync=1", "max_clean_ios_total=0", "max_clean_ios_set=2", "do_sync=0"}},
    {FLASHCACHE_HANDLE_STATE_STOP_WRITEBACK,
     SetStopWritebackState,
     {"max_clean_ios_total=0", "max_clean_ios_set=0", "cache_all=1", "stop_sync=1", "do_sync=0"}},
};

TEST_F(HandleStateTest, AStateIsItsKnobsInOrderAndReadsBack) {
    Begin();
    for (const auto& test : kStates) {
        spy::state().runs.clear();
        EXPECT_EQ(test.set(kSsd, kSpace), 0);
        EXPECT_EQ(KnobWrites(), test.writes);
        EXPECT_EQ(VEMOFlashCacheHandleStateGet(kSsd, kSpace), test.state);

        spy::state().runs.clear();
        EXPECT_EQ(VEMOFlashCacheHandleStateSet(kSsd, kSpace, test.state), 0);
        EXPECT_EQ(KnobWrites(), test.writes);
    }
    EXPECT_THAT(spy::LoggedTexts(), IsEmpty());
}

TEST_F(HandleStateTest, TheFirstKnobThatFailsEndsTheChange) {
    for (const auto& test : kStates) {
        for (std::size_t failing = 0; failing < test.writes.size(); ++failing) {
            spy::state() = {};
            spy::state().answer = [&](const ToolRun&) {
                return Answer{spy::state().runs.size() == failing + 1 ? 255 : 0, ""};
            };
            EXPECT_EQ(VEMOFlashCacheHandleStateSet(kSsd, kSpace, test.state), -1);
            EXPECT_EQ(KnobWrites(),
                      std::vector(test.writes.begin(), test.writes.begin() + static_cast<long>(failing) + 1));
        }
    }
}

TEST_F(HandleStateTest, WhatIsNoStateIsRefused) {
    EXPECT_EQ(VEMOFlashCacheHandleStateSet(kSsd, kSpace, 7), -1);
    EXPECT_THAT(spy::LoggedTexts(), IsEmpty());
    EXPECT_EQ(VEMOFlashCacheHandleStateSet(kSsd, kSpace, FLASHCACHE_HANDLE_STATE_UNKNOWN), -1);
    EXPECT_EQ(VEMOFlashCacheHandleStateSet(nullptr, kSpace, FLASHCACHE_HANDLE_STATE_FLUSH), -1);
    EXPECT_EQ(VEMOFlashCacheHandleStateSet(kSsd, nullptr, FLASHCACHE_HANDLE_STATE_FLUSH), -1);
    EXPECT_EQ(VEMOFlashCacheHandleStateGet(nullptr, kSpace), -1);
    EXPECT_EQ(VEMOFlashCacheHandleStateGet(kSsd, nullptr), -1);
    EXPECT_EQ(spy::LoggedTexts(), std::vector<std::string>(5, "Incorrect Parameter"));
    EXPECT_EQ(SetFlushState(nullptr, kSpace), -1);
    EXPECT_EQ(SetNormalState("md3", kSpace), -1);
    EXPECT_THAT(KnobWrites(), IsEmpty());
}

// Answers reads of the knobs with these values, in the order in which the state is read.
void AnswerReads(const std::vector<int>& values) {
    spy::state() = {};
    spy::state().answer = [values](const ToolRun& run) {
        const std::size_t index = spy::state().runs.size() - 1;
        return index < values.size()
                   ? Answer{0, run.arguments[0] + " = " + std::to_string(values[index]) + "\n"}
                   : Answer{255, ""};
    };
}

TEST_F(HandleStateTest, TheKnobsTellTheState) {
    const struct {
        std::vector<int> readings;  // iosTotal, iosSet, cacheAll, doSync, stopSync
        FLASHCACHE_HANDLE_STATE state;
    } cases[] = {
        {{4, 2, 1, 0, 0}, FLASHCACHE_HANDLE_STATE_NORMAL},
        {{-1, 0, 1, 1, 1}, FLASHCACHE_HANDLE_STATE_NORMAL},
        {{0, 2, 1, 1, 0}, FLASHCACHE_HANDLE_STATE_NORMAL},
        {{0, 0, 1, 1, 0}, FLASHCACHE_HANDLE_STATE_STOP_WRITEBACK},
        {{0, 0, 0, 1, 1}, FLASHCACHE_HANDLE_STATE_FLUSH},
        {{20, 10, 0, 0, 0}, FLASHCACHE_HANDLE_STATE_REPAIRING},
        {{4, 2, 2, 0, 1}, FLASHCACHE_HANDLE_STATE_UNKNOWN},
        {{4, 2, 0, 5, 1}, FLASHCACHE_HANDLE_STATE_UNKNOWN},
    };
    for (const auto& test : cases) {
        AnswerReads(test.readings);
        EXPECT_EQ(VEMOFlashCacheHandleStateGet(kSsd, kSpace), test.state)
            << testing::PrintToString(test.readings);
        EXPECT_EQ(spy::LoggedTexts().size(), test.state == FLASHCACHE_HANDLE_STATE_UNKNOWN ? 1U : 0U);
    }
    EXPECT_THAT(spy::LoggedTexts(),
                ElementsAre("Unknown state (iosTotal=4 iosSet=2 cacheAll=0 doSync=5 stopSync=1"));
    std::vector<std::string> read;
    for (const ToolRun& run : spy::state().runs) {
        read.push_back(run.arguments.at(0).substr(run.arguments[0].rfind('.') + 1));
    }
    EXPECT_THAT(read,
                ElementsAre("max_clean_ios_total", "max_clean_ios_set", "cache_all", "do_sync", "stop_sync"));
}

TEST_F(HandleStateTest, AKnobThatCannotBeReadLeavesTheStateUnknown) {
    for (const std::size_t readable : {0U, 1U, 4U}) {
        AnswerReads(std::vector<int>(readable, 1));
        EXPECT_EQ(VEMOFlashCacheHandleStateGet(kSsd, kSpace), -1);
        EXPECT_EQ(spy::state().runs.size(), readable + 1);
        EXPECT_THAT(spy::LoggedTexts(), ElementsAre("Get NULL result", "Sysctl get error"));
    }
}

TEST_F(HandleStateTest, Names) {
    const char* const names[] = {"Unknown", "Flush", "Normal", "Repairing", "StopWriteBack"};
    for (int state = -1; state <= 3; ++state) {
        EXPECT_STREQ(VEMOFlashCacheHandleStateStr(state), names[state + 1]);
    }
    EXPECT_THAT(spy::LoggedTexts(), IsEmpty());
    EXPECT_STREQ(VEMOFlashCacheHandleStateStr(4), "Unknown");
    EXPECT_THAT(spy::LoggedTexts(), ElementsAre("Error: Incorrect Handle State = 4"));
}

}  // namespace
