// Faults in the midst of changes: whatever fails, the file parses and the entries of others stay.
#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "config_support.h"
#include "support/failing_memory.h"

namespace {

using testing::AnyOf;
using testing::ElementsAre;

// The one failure of the list that goes without a message.
constexpr const char* kSilentStep = "VLIBCSzHashSetValue";
constexpr const char* kSteps[] = {"VLIBCExecl",
                                  "VLIBCFileAddSection",
                                  "VLIBCFileEnumSection",
                                  "VLIBCFileGetSection",
                                  "VLIBCFileSetSection",
                                  "VLIBCSzHashAlloc",
                                  "VLIBCFileRemoveSection",
                                  kSilentStep,
                                  "VLIBCSzListAlloc",
                                  "flock",
                                  "fsync",
                                  "linkat",
                                  "open",
                                  "renameat",
                                  "write"};

class ConfigFaultTest : public ConfigTest {
  protected:
    const FLASHCACHE_CONFIG changed_ = Entry("B", "changed");
    const FLASHCACHE_CONFIG_SEARCH b_ = Search(FLASHCACHE_SEARCH_BY_SECTION, "B");
    std::string othersBefore_;

    std::string fileBefore_;

    void SetUp() override {
        StoreAbc();
        fileBefore_ = ReadWhole(kFile);
        othersBefore_ = SectionText("A") + SectionText("C");
        EXPECT_EQ(prctl(PR_SET_CHILD_SUBREAPER, 1), 0);
        EXPECT_EQ(Stored().size(), 3U);  // so that what lives as long as the thread has its memory
        ResetSpy();
    }

    // A pause ends when the lock has become free: nobody waits longer than needed, nobody starves.
    static void ResetSpy() {
        spy::state() = {};
        spy::state().onSleep = [] {
            const int fd = open(kLock, O_RDWR | O_CLOEXEC);
            flock(fd, LOCK_EX);
            close(fd);
        };
    }

    // Without faults, file and copy parse, A and C are as they were and B is whole, or gone.
    void ExpectSound() {
        ResetSpy();
        EXPECT_EQ(SectionText("A") + SectionText("C"), othersBefore_);
        for (auto* get : {VEMOFlashCacheConfigGet, VEMOFlashCacheConfigTmpGet}) {
            EXPECT_THAT(Stored(get),
                        AnyOf(ElementsAre("A", "B", "C"), ElementsAre("A", "C"), ElementsAre("A", "C", "B")));
            List b;
            if (get(&b_, b.address()) == 1) {
                const FLASHCACHE_CONFIG old = Entry("B", "first");
                EXPECT_THAT(Describe(*b.get()), AnyOf(Describe(old), Describe(changed_)));
            }
        }
    }

    void ExpectStored() {
        List b;
        ASSERT_EQ(VEMOFlashCacheConfigTmpGet(&b_, b.address()), 1);
        EXPECT_STREQ(b->SSDUUID, "changed");
        EXPECT_EQ(ReadWhole(kCopy), ReadWhole(kFile));
    }

    void ExpectRemoved() { EXPECT_EQ(VEMOFlashCacheConfigTmpGet(&b_, nullptr), 0); }

    static void Store(const std::string& text) {
        WriteWhole(kFile, text);
        WriteWhole(kCopy, text);
    }

    struct Change {
        std::function<int()> make;
        std::function<void()> expectDone;
        std::string before;  // of file and copy
    };

    // Replacing, adding and removing B.
    std::vector<Change> Changes() {
        return {
            {[this] { return VEMOFlashCacheConfigSet(&changed_); }, [this] { ExpectStored(); }, fileBefore_},
            {[this] { return VEMOFlashCacheConfigSet(&changed_); }, [this] { ExpectStored(); },
             othersBefore_},
            {[this] { return VEMOFlashCacheConfigDelete(&b_); }, [this] { ExpectRemoved(); }, fileBefore_}};
    }

    // A process that does `work` and ends.
    static pid_t Start(const std::function<void()>& work) {
        const pid_t child = fork();
        if (child == 0) {
            work();
            _exit(0);
        }
        return child;
    }

    // Whether a signal ended it. Waits for the programs that it leaves behind, too: such a one may yet move
    // the copy that another process has in the making.
    static bool WasKilled(pid_t child) {
        int status = 0;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        while (waitpid(-1, nullptr, 0) > 0) {
        }
        return WIFSIGNALED(status);
    }

    // Makes the change with this fault. Returns whether it came to that.
    bool FailingAt(const Change& change, const char* step, const spy::State::Fault& fault) {
        SCOPED_TRACE(testing::Message() << step << " " << fault.call << (fault.stays ? " and on" : ""));
        Store(change.before);
        spy::state().onSleep = nullptr;
        spy::state().faults[step] = fault;
        const int result = change.make();
        const bool fired = spy::state().faults[step].fired > 0;
        EXPECT_TRUE(result == 0 || !spy::LoggedTexts().empty() || step == kSilentStep);
        std::filesystem::remove(kLock);  // which an unlock that failed has left locked
        ExpectSound();
        if (result == 0) {
            change.expectDone();
        }
        return fired;
    }

    // Makes the change in a process that dies at its n-th such step. Returns whether it came to that.
    bool KilledAt(const Change& change, const char* step, int n) {
        SCOPED_TRACE(testing::Message() << step << " " << n);
        Store(change.before);
        const bool killed = WasKilled(Start([&] {
            spy::state().faults[step] = {n, false, 0, true};
            change.make();
        }));
        ExpectSound();  // the lock went with its holder
        return killed;
    }

    // Writes B by turns, and a byte after each time.
    static void WriteForEver(int fd) {
        for (const char* uuid = "changed";; uuid = uuid[0] == 'c' ? "first" : "changed") {
            const FLASHCACHE_CONFIG entry = Entry("B", uuid);
            if (VEMOFlashCacheConfigSet(&entry) != 0 || write(fd, "", 1) != 1) {
                _exit(1);
            }
        }
    }

    // Kills a process that writes, so many milliseconds after its first entry.
    static void KillWriterAfter(int milliseconds) {
        int begun[2];
        ASSERT_EQ(pipe2(begun, O_CLOEXEC), 0);
        const pid_t writer = Start([&] { WriteForEver(begun[1]); });
        close(begun[1]);
        char byte = 0;
        EXPECT_EQ(read(begun[0], &byte, 1), 1);
        poll(nullptr, 0, milliseconds);
        kill(writer, SIGKILL);
        EXPECT_TRUE(WasKilled(writer));
        close(begun[0]);
    }

    // Whether the process has ended, which it must have done well.
    static bool HasEnded(pid_t process) {
        int status = 0;
        const bool ended = waitpid(process, &status, WNOHANG) == process;
        EXPECT_EQ(status, 0);
        return ended;
    }

    static void WriteAFewTimes(const char* section) {
        for (uint64_t i = 0; i < 15; ++i) {
            FLASHCACHE_CONFIG entry = Entry(section, i % 2 == 0 ? "even" : "a good deal longer than that");
            entry.CacheSizeByte = i;
            if (VEMOFlashCacheConfigSet(&entry) != 0) {
                _exit(1);
            }
        }
    }
};

TEST_F(ConfigFaultTest, EveryStepMayFailOnceOrForGood) {
    for (const Change& change : Changes()) {
        for (const char* step : kSteps) {
            for (int n = 1; FailingAt(change, step, {n, true}); ++n) {
                FailingAt(change, step, {n, false});
            }
        }
    }
}

TEST_F(ConfigFaultTest, KilledAtAnyStep) {
    for (const Change& change : Changes()) {
        for (const char* step : kSteps) {
            int n = 1;
            while (KilledAt(change, step, n)) {
                ++n;
            }
        }
    }
}

TEST_F(ConfigFaultTest, KilledAtAnyInstant) {
    for (int round = 0; round < 24; ++round) {
        KillWriterAfter(round % 8);
        ExpectSound();
    }
}

TEST_F(ConfigFaultTest, WritersAndReadersAtOnce) {
    const std::vector<std::string> kAbc = {"A", "B", "C"};
    const std::string c = SectionText("C");
    std::vector<pid_t> writers = {Start([] { WriteAFewTimes("A"); }), Start([] { WriteAFewTimes("B"); })};
    bool sound = true;
    while (!writers.empty()) {
        sound =
            sound && Stored(VEMOFlashCacheConfigGet) == kAbc && Stored(VEMOFlashCacheConfigTmpGet) == kAbc;
        std::erase_if(writers, HasEnded);
    }
    EXPECT_TRUE(sound);
    EXPECT_EQ(SectionText("C"), c);
    EXPECT_THAT(SectionText("A") + SectionText("B"),
                testing::ContainsRegex("CacheSizeByte = 14\n(.*\n)*.*CacheSizeByte = 14\n"));
    EXPECT_EQ(ReadWhole(kCopy), ReadWhole(kFile));
}

class ConfigMemoryTest : public ConfigFaultTest {
  protected:
    void ExpectSoundAfter(const Change& change, int result) {
        ExpectSound();
        if (result == 0) {
            change.expectDone();
        }
        Store(change.before);
    }

    // Runs `call` with its n-th allocation failing, n = 1, 2, ... to its last, once and for good.
    static void Sweep(const std::function<void()>& call, const std::function<void()>& check) {
        bool noticed = true;
        for (int n = 1; noticed; ++n) {
            for (const bool stays : {false, true}) {
                SCOPED_TRACE(testing::Message() << "allocation " << n << (stays ? " and on" : ""));
                memory::plan = {n, stays, 0};
                call();
                noticed = memory::plan.failed > 0;
                memory::plan = {};
                check();
            }
        }
    }
};

TEST_F(ConfigMemoryTest, ReadersGiveAllOrNothing) {
    for (auto* get : {VEMOFlashCacheConfigGet, VEMOFlashCacheConfigTmpGet}) {
        FLASHCACHE_CONFIG* list = nullptr;
        int result = 0;
        int failures = 0;
        const auto check = [&] {
            const List owner(std::exchange(list, nullptr));
            EXPECT_EQ(result, owner ? 3 : -1);
            EXPECT_EQ(Names(owner.get()).size(), owner ? 3U : 0U);
            failures += owner ? 0 : 1;
        };
        Sweep([&] { result = get(nullptr, &list); }, check);
        EXPECT_GT(failures, 2 * 27);  // three records of a structure and eight texts
    }
}

TEST_F(ConfigMemoryTest, WritersChangeAllOrNothing) {
    for (const Change& change : Changes()) {
        int result = 0;
        const auto make = [&] { result = change.make(); };
        Store(change.before);
        Sweep(make, [&] { ExpectSoundAfter(change, result); });
        EXPECT_EQ(result, 0);
    }
}

TEST_F(ConfigMemoryTest, TheOtherOperationsFailInOrder) {
    FLASHCACHE_CONFIG missing = Entry("B");
    missing.CacheMissing = 1;
    missing.Policy.WriteMode = FLASHCACHE_WRITE_BACK;
    const std::function<int()> calls[] = {
        [&] { return VEMOFlashCacheConfSearch(&b_, nullptr, nullptr); },
        [] { return VEMOFlashcacheConfigSerialListSet("vendor", "A,B"); },
        [] { return VEMOFlashcacheConfigSerialListCheck("vendor", nullptr); },
        [] { return VEMOFlashcacheConfigSerialListDelete("vendor"); },
        [] { return VEMOFlashCacheApmFlushStatusSet("cache", 1); },
        [] { return VEMOFlashCacheIsApmFlushDone("other"); },
        [&] { return VEMOFlashCacheCheckSendMissingNotification(&missing); },
        [] { return VEMOFlashCacheIsRemoveInFlushState("/dev/md3", FLASHCACHE_FLUSH_STATE_NORMAL); },
    };
    for (const std::function<int()>& call : calls) {
        int result = 0;
        const auto check = [&] { EXPECT_TRUE(result == 0 || result == -1); };
        Sweep([&] { result = call(); }, check);
        EXPECT_EQ(result, 0);
    }
}

}  // namespace
