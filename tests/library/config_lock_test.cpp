#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include "config_support.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class LockTest : public ConfigTest {
  protected:
    // A descriptor that holds the lock, -1 without one.
    static int Take(int exclusive = 1) {
        int fd = -1;
        return VEMOFlashCacheLock(kLock, exclusive, &fd) == 1 ? fd : -1;
    }

    // Lets the coming attempts fail with these, one after the other, and what follows go well.
    static void FailAttempts(std::vector<int> errors) {
        spy::state().faults["flock"] = {1, true, errors.front()};
        spy::state().onSleep = [errors = std::move(errors), next = std::size_t{0}]() mutable {
            if (++next < errors.size()) {
                spy::state().faults["flock"].error = errors[next];
            } else {
                spy::state().faults.erase("flock");
            }
        };
    }
};

TEST_F(LockTest, MakesTheFileAndKeepsItFromPrograms) {
    umask(0);
    const int fd = Take();
    struct stat status{};
    ASSERT_EQ(stat(kLock, &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0644U);
    EXPECT_NE(fcntl(fd, F_GETFD) & FD_CLOEXEC, 0);  // a program left behind must not hold the lock
    EXPECT_EQ(VEMOFlashCacheUnlock(fd), 1);
    EXPECT_EQ(fcntl(fd, F_GETFD), -1);
    EXPECT_TRUE(std::filesystem::is_empty(kLock));
    EXPECT_THAT(spy::LoggedTexts(), IsEmpty());
}

TEST_F(LockTest, SharedLocksGoTogetherExclusiveOnesAlone) {
    const int first = Take(0);
    const int second = Take(0);
    EXPECT_GE(second, 0);
    EXPECT_EQ(Take(1), -1);
    VEMOFlashCacheUnlock(first);
    VEMOFlashCacheUnlock(second);
    const int alone = Take(-1);
    EXPECT_GE(alone, 0);
    EXPECT_EQ(Take(0), -1);
    VEMOFlashCacheUnlock(alone);
}

TEST_F(LockTest, GivesUpAfterThirtySeconds) {
    const int holder = Take();
    const auto open = OpenDescriptors();
    int fd = -7;
    EXPECT_EQ(VEMOFlashCacheLock(kLock, 1, &fd), 0);
    EXPECT_EQ(fd, -7);
    EXPECT_EQ(OpenDescriptors(), open);
    EXPECT_EQ(spy::state().slept, std::vector<std::string>(300, "usleep"));
    EXPECT_THAT(spy::LoggedTexts(),
                ElementsAre("Failed to lock /run/lock/ssdcache.lock. EINTR: 0, ENOLCK: 0, last err: "
                            "Resource temporarily unavailable (timeout 30 second)"));
    VEMOFlashCacheUnlock(holder);
}

TEST_F(LockTest, GetsALockThatIsReleasedMeanwhile) {
    const int holder = Take();
    spy::state().onSleep = [&] {
        if (spy::state().slept.size() == 299) {
            VEMOFlashCacheUnlock(holder);
        }
    };
    const int fd = Take();
    EXPECT_GE(fd, 0);
    EXPECT_EQ(spy::state().slept.size(), 299U);
    EXPECT_THAT(spy::LoggedTexts(), IsEmpty());
    VEMOFlashCacheUnlock(fd);
}

TEST_F(LockTest, TriesAgainOnlyWhatMayPass) {
    FailAttempts({EINTR, ENOLCK, EAGAIN});
    const int fd = Take();
    EXPECT_GE(fd, 0);
    EXPECT_EQ(spy::state().slept.size(), 3U);
    VEMOFlashCacheUnlock(fd);

    FailAttempts({EINTR, ENOLCK, EINTR, EAGAIN, EAGAIN, EAGAIN, EAGAIN, EAGAIN, EAGAIN, EAGAIN, EBADF});
    EXPECT_EQ(Take(), -1);
    EXPECT_EQ(spy::state().slept.size(), 3U + 10U);
    FailAttempts(std::vector<int>(400, ENOLCK));
    EXPECT_EQ(Take(), -1);
    EXPECT_THAT(spy::LoggedTexts(),
                ElementsAre("Failed to lock /run/lock/ssdcache.lock. EINTR: 2, ENOLCK: 1, last err: "
                            "Bad file descriptor (timeout 1 second)",
                            "Failed to lock /run/lock/ssdcache.lock. EINTR: 0, ENOLCK: 300, last err: "
                            "No locks available (timeout 30 second)"));
}

TEST_F(LockTest, RefusesWhatIsNoLock) {
    int fd = -7;
    EXPECT_EQ(VEMOFlashCacheLock(nullptr, 1, &fd), 0);
    EXPECT_EQ(VEMOFlashCacheLock(kLock, 1, nullptr), 0);
    EXPECT_EQ(VEMOFlashCacheLock("/run/none/x.lock", 1, &fd), 0);
    EXPECT_EQ(VEMOFlashCacheLock("/run", 1, &fd), 0);
    EXPECT_EQ(fd, -7);
    EXPECT_EQ(VEMOFlashCacheUnlock(-1), 0);
    EXPECT_EQ(VEMOFlashCacheUnlock(4095), 0);
    EXPECT_THAT(
        spy::LoggedTexts(),
        ElementsAre("Incorrect Parameter", "Incorrect Parameter",
                    "Failed to open lock file /run/none/x.lock: No such file or directory",
                    "Failed to open lock file /run: Is a directory", "Incorrect parameter", "Unlock failed"));
    EXPECT_EQ(VLIBCErrGet(), 0);
}

TEST_F(LockTest, AFailedUnlockIsToldAndChangesNoResult) {
    StoreAbc();
    for (const char* failing : {"flock", "close"}) {
        spy::state() = {};
        spy::state().faults[failing] = {failing == std::string("flock") ? 2 : 1, false};
        const FLASHCACHE_CONFIG_SEARCH search = Search(FLASHCACHE_SEARCH_BY_SECTION, "B");
        EXPECT_EQ(VEMOFlashCacheConfSearch(&search, nullptr, nullptr), 0);
        EXPECT_THAT(spy::LoggedTexts(),
                    ElementsAre(failing == std::string("flock") ? "Unlock failed" : "Failed to close file",
                                "Unlock file failed"));
        EXPECT_EQ(spy::state().log.back().file, "flashcache_config_search.cpp");
        // Where the unlocking itself failed the lock stays with the descriptor, as promised.
        EXPECT_EQ(Take() == -1, failing == std::string("flock"));
        std::filesystem::remove(kLock);
    }
}

TEST_F(LockTest, WhatEachFailedLockStops) {
    StoreAbc();
    const std::string before = ReadWhole(kFile);
    const int holder = Take();
    const FLASHCACHE_CONFIG entry = Entry("D");
    const FLASHCACHE_CONFIG_SEARCH search = Search(FLASHCACHE_SEARCH_BY_SECTION, "B");
    List list;
    EXPECT_EQ(VEMOFlashCacheConfigGet(nullptr, list.address()), -1);
    EXPECT_EQ(VEMOFlashCacheConfigTmpGet(nullptr, list.address()), -1);
    EXPECT_EQ(VEMOFlashCacheConfSearch(&search, nullptr, nullptr), -1);
    EXPECT_EQ(VEMOFlashCacheConfigSet(&entry), -1);
    EXPECT_EQ(VEMOFlashCacheConfigDelete(&search), -1);
    EXPECT_EQ(spy::state().slept.size(), 5U * 300);
    EXPECT_EQ(ReadWhole(kFile), before);
    EXPECT_FALSE(list);
    std::map<std::string, int> told;
    for (const spy::LogLine& line : spy::state().log) {
        told[line.file] += line.text == "Failed to get lock" ? 1 : 0;
    }
    EXPECT_EQ(told["flashcache_config_get.cpp"], 3);
    EXPECT_EQ(told["flashcache_config_search.cpp"], 1);
    EXPECT_EQ(told["flashcache_config_set.cpp"], 1);
    VEMOFlashCacheUnlock(holder);

    spy::state().faults["flock"] = {3, true};  // the removal's own lock, after the reader's
    EXPECT_EQ(VEMOFlashCacheConfigDelete(&search), -1);
    EXPECT_EQ(spy::state().log.back().file, "flashcache_config_delete.cpp");
    EXPECT_EQ(ReadWhole(kFile), before);
}

}  // namespace
