// Flushes and their cancellation from several processes.
#include <unistd.h>

#include <csignal>

#include "support/appliance.h"

namespace {

using namespace appliance;
using spy::Answer;
using spy::ToolRun;
using testing::Contains;
using testing::MatchesRegex;

constexpr int kBlocks = 40;
// What a child that flushes ends with.
constexpr int kFailed = 0;
constexpr int kCancelled = 1;
constexpr int kDone = 2;

// A point where a child process stops, once, until its parent lets it go on.
class Gate {
  public:
    Gate() {
        if (pipe(there_) != 0 || pipe(goOn_) != 0) {
            std::abort();
        }
    }
    Gate(const Gate&) = delete;
    Gate& operator=(const Gate&) = delete;
    ~Gate() {
        for (const int fd : {there_[0], there_[1], goOn_[0], goOn_[1]}) {
            close(fd);
        }
    }
    // The child's part.
    void Arrive() {
        char token = 'x';
        if (!passed_ && write(there_[1], &token, 1) == 1) {
            passed_ = read(goOn_[0], &token, 1) == 1;
        }
    }
    // The parent's: whether the child has come here before it ended.
    bool Reached() {
        close(std::exchange(there_[1], -1));
        char token = 0;
        return read(there_[0], &token, 1) == 1;
    }
    void Open() {
        if (write(goOn_[1], "x", 1) != 1) {
            std::abort();
        }
    }

  private:
    int there_[2] = {-1, -1};
    int goOn_[2] = {-1, -1};
    bool passed_ = false;
};

class FlushProcessTest : public CacheTest {
  protected:
    void SetUp() override {
        CacheTest::SetUp();
        Begin();
        SetFault("cleaning", "pause");
        spy::state().realSleeps = {"usleep"};  // those of the lock, which several processes may want
    }
    // Has all blocks dirty in a cache that is in its normal state.
    static void MakeDirty() {
        ASSERT_EQ(SetNormalState(kSsd, kSpace), 0);
        WriteBlocks(kCache, kBlocks);
        ASSERT_EQ(DirtyBlocks(), kBlocks);
    }
    static void CleanAll() { SetFault("cleaning", "100000"); }
    // Flushes in a child: `atRun` is called before its tool runs, with their number, `inPause` in its
    // pauses.
    static pid_t StartFlush(const std::function<void()>& inPause,
                            const std::function<void(int, const ToolRun&)>& atRun = nullptr,
                            const char* cache = kCache) {
        return Fork([&] {
            spy::state().onSleep = inPause;
            spy::state().answer = [&, number = 0](const ToolRun& run) mutable -> std::optional<Answer> {
                if (atRun) {
                    atRun(number++, run);
                }
                return std::nullopt;
            };
            return VEMOFlashCacheFlush(cache) + 1;
        });
    }
    static FLASHCACHE_HANDLE_STATE HandleState() { return VEMOFlashCacheHandleStateGet(kSsd, kSpace); }
};

bool HoldsTheLock(const ToolRun& run) {
    return run.program == "/bin/cp" || run.program == "/bin/mv";
}

TEST_F(FlushProcessTest, ACancelAtEachStepOfTheFlush) {
    EXPECT_EQ(VEMOFlashCacheFlushCancel(kCache), -1);  // there is none yet
    int cancelled = 0;
    for (int step = 0, reached = 1; reached == 1; ++step) {
        MakeDirty();
        Gate gate;
        const auto clean = [] {
            if (FlushStateOf() == "flushing") {  // or what is dirty when it was cancelled could not be told
                CleanAll();
            }
        };
        const pid_t flush = StartFlush(clean, [&](int number, const ToolRun& run) {
            if (number >= step && !HoldsTheLock(run)) {
                gate.Arrive();
            }
        });
        reached = gate.Reached() ? 1 : 0;
        const int result = reached == 1 ? VEMOFlashCacheFlushCancel(kCache) : -1;
        if (reached == 1) {
            gate.Open();
        }
        const bool inTime = result == 1;
        cancelled += inTime ? 1 : 0;
        EXPECT_EQ(Wait(flush), inTime ? kCancelled : kDone) << step;
        EXPECT_EQ(FlushStateOf(), inTime ? "normal" : "flush_done") << step;
        EXPECT_EQ(HandleState(), inTime ? FLASHCACHE_HANDLE_STATE_NORMAL : FLASHCACHE_HANDLE_STATE_FLUSH)
            << step;
        EXPECT_EQ(DirtyBlocks(), inTime ? kBlocks : 0) << step;
    }
    EXPECT_GE(cancelled, 9);  // from the first knob that is read on
}

TEST_F(FlushProcessTest, ACancelInAPause) {
    MakeDirty();
    Gate gate;
    const pid_t flush = StartFlush([&] { gate.Arrive(); });
    ASSERT_TRUE(gate.Reached());
    SetFault("cleaning", "15");
    EXPECT_EQ(VEMOFlashCacheFlushCancel(kCache), 1);
    EXPECT_EQ(VEMOFlashCacheFlushCancel(kCache), -1);
    gate.Open();
    EXPECT_EQ(Wait(flush), kCancelled);
    EXPECT_EQ(HandleState(), FLASHCACHE_HANDLE_STATE_NORMAL);
    EXPECT_EQ(DirtyBlocks(), kBlocks - 15);
    EXPECT_TRUE(HoldsBlocks(kCache, kBlocks));
}

TEST_F(FlushProcessTest, OtherStatesAreSetAgainToo) {
    MakeDirty();
    for (const FLASHCACHE_HANDLE_STATE state :
         {FLASHCACHE_HANDLE_STATE_STOP_WRITEBACK, FLASHCACHE_HANDLE_STATE_REPAIRING,
          FLASHCACHE_HANDLE_STATE_FLUSH}) {
        ASSERT_EQ(VEMOFlashCacheHandleStateSet(kSsd, kSpace, state), 0);
        Forget();
        spy::state().onSleep = [] { EXPECT_EQ(VEMOFlashCacheFlushCancel(kCache), 1); };
        EXPECT_EQ(VEMOFlashCacheFlush(kCache), 0);
        EXPECT_EQ(HandleState(), state);
        EXPECT_EQ(FlushStateOf(), "normal");
        EXPECT_THAT(spy::LoggedTexts().back(), MatchesRegex("Flashcache flushing canceled \\[/dev/md3\\]. "
                                                            "\\[0x[0-9A-F]{4} .*\\]"));
        EXPECT_THAT(spy::LoggedTexts(), Contains("Cancel flash cache flush [/dev/md3]"));
        EXPECT_EQ(VEMOFlashCacheFlushCancel(kCache), -1);
    }
}

TEST_F(FlushProcessTest, ACancelThatOverwritesTheDoneRecordFailsTheFlush) {
    MakeDirty();
    const pid_t flush = StartFlush(CleanAll, [](int, const ToolRun& run) {
        if (run.program == "/bin/mv" && ReadWhole(run.arguments[1]).find("flush_done") != std::string::npos) {
            Replace(run.arguments[1], "flush_done", "normal");  // as it reads once the cancel has written
        }
    });
    EXPECT_EQ(Wait(flush), kFailed);
    EXPECT_EQ(FlushStateOf(), "normal");
    EXPECT_EQ(HandleState(), FLASHCACHE_HANDLE_STATE_NORMAL);
}

TEST_F(FlushProcessTest, AFlushKilledAtEachStepIsStartedAgain) {
    for (int step = 0, killed = 1; killed == 1; ++step) {
        MakeDirty();
        const pid_t flush = StartFlush(CleanAll, [&](int number, const ToolRun&) {
            if (number == step) {
                std::raise(SIGKILL);
            }
        });
        killed = Wait(flush) == 128 + SIGKILL ? 1 : 0;
        EXPECT_NE(FlushStateOf(), "unreadable") << step;
        EXPECT_TRUE(HoldsBlocks(kCache, kBlocks)) << step;
        EXPECT_EQ(Wait(StartFlush(CleanAll)), kDone) << step;
        EXPECT_EQ(FlushStateOf(), "flush_done") << step;
        EXPECT_EQ(DirtyBlocks(), 0) << step;
        EXPECT_TRUE(HoldsBlocks(kSpace, kBlocks)) << step;
        ASSERT_TRUE(killed == 0 || step < 30);
        if (killed == 0) {
            EXPECT_GE(step, 15);
        }
    }
}

TEST_F(FlushProcessTest, AFlushKilledInAPauseCanBeCancelled) {
    MakeDirty();
    Gate gate;
    const pid_t flush = StartFlush([&] { gate.Arrive(); });
    ASSERT_TRUE(gate.Reached());
    kill(flush, SIGKILL);
    EXPECT_EQ(Wait(flush), 128 + SIGKILL);
    EXPECT_EQ(FlushStateOf(), "flushing");
    EXPECT_EQ(HandleState(), FLASHCACHE_HANDLE_STATE_FLUSH);
    EXPECT_EQ(VEMOFlashCacheFlushCancel(kCache), 1);
    EXPECT_EQ(FlushStateOf(), "normal");
    EXPECT_EQ(Wait(StartFlush(CleanAll)), kDone);
    EXPECT_TRUE(HoldsBlocks(kSpace, kBlocks));
}

TEST_F(FlushProcessTest, TwoCachesAtOnce) {
    constexpr const char* kCache2 = "/dev/mapper/cachedev_1";
    constexpr const char* kSpace2 = "/dev/vg1/volume_2";
    MakeDirty();
    CreateCache(FLASHCACHE_WRITE_BACK, "/dev/md4", kSpace2);
    WriteBlocks(kCache2, kBlocks, 'b');
    // The second takes the place of the other entry: that one must stay as it is.
    AddEntry("second", "/dev/md4", kSpace2);
    Gate gates[2];
    const pid_t first = StartFlush([&] { gates[0].Arrive(); });
    const pid_t second = StartFlush([&] { gates[1].Arrive(); }, nullptr, kCache2);
    ASSERT_TRUE(gates[0].Reached());
    ASSERT_TRUE(gates[1].Reached());
    EXPECT_EQ(FlushStateOf(), "flushing");
    EXPECT_EQ(FlushStateOf("/dev/md4"), "flushing");
    EXPECT_EQ(DirtyBlocks("md4+volume_2"), kBlocks);
    CleanAll();
    gates[0].Open();
    gates[1].Open();
    EXPECT_EQ(Wait(first), kDone);
    EXPECT_EQ(Wait(second), kDone);
    EXPECT_EQ(FlushStateOf(), "flush_done");
    EXPECT_EQ(FlushStateOf("/dev/md4"), "flush_done");
    EXPECT_TRUE(HoldsBlocks(kSpace, kBlocks));
    EXPECT_TRUE(HoldsBlocks(kSpace2, kBlocks, 'b'));
    FLASHCACHE_CONFIG_SEARCH search{};
    search.type = FLASHCACHE_SEARCH_BY_SECTION;
    search.SectionName = "second";
    EXPECT_EQ(VEMOFlashCacheConfigDelete(&search), 0);
}

}  // namespace
