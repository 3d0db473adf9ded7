#include <dlfcn.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <functional>
#include <thread>
#include <utility>

#include "hash_owner.h"
#include "platform/vemosdk.h"
#include "platform/vemosysnotify.h"
#include "support/private_folder.h"

namespace {

std::vector<std::string> logged;
std::function<void()> beforeLocking;

}  // namespace

namespace {

void Keep(int priority, const char* format, va_list values) {
    char line[1024];
    std::vsnprintf(line, sizeof line, format, values);
    logged.push_back(std::to_string(priority) + ": " + line);
}

}  // namespace

// Take the place of the system's, so that the tests see what is logged; the second is what hardened code
// calls.
extern "C" void syslog(int priority, const char* format, ...) {
    va_list values;
    va_start(values, format);
    Keep(priority, format, values);
    va_end(values);
}

extern "C" void __syslog_chk(int priority, int /*flag*/, const char* format, ...) {
    va_list values;
    va_start(values, format);
    Keep(priority, format, values);
    va_end(values);
}

extern "C" int flock(int fd, int operation) noexcept {
    if (beforeLocking) std::exchange(beforeLocking, nullptr)();
    return reinterpret_cast<decltype(&flock)>(dlsym(RTLD_NEXT, "flock"))(fd, operation);
}

namespace {

using testing::ElementsAre;

std::vector<std::string> Items(const VLIBC_SZLIST* list) {
    std::vector<std::string> items;
    for (int i = 0; VLIBCSzListGet(list, i) != nullptr; ++i) items.emplace_back(VLIBCSzListGet(list, i));
    return items;
}

TEST(Lists, AnyCapacityHoldsAnyNumber) {
    for (const int capacity : {INT_MIN, -1, 0, 1, 1024, INT_MAX}) {
        VLIBC_SZLIST* list = VLIBCSzListAlloc(capacity);
        EXPECT_EQ(VLIBCStrTok(",A,,B C,", ",", &list), 2);
        EXPECT_EQ(VLIBCStrTok("D:E,F", ":,", &list), 3);
        EXPECT_EQ(VLIBCStrTok("", ",", &list), 0);
        EXPECT_THAT(Items(list), ElementsAre("A", "B C", "D", "E", "F"));
        int count = 0;
        std::memcpy(&count, list, sizeof count);  // callers read the count at the list's beginning
        EXPECT_EQ(count, 5);
        EXPECT_EQ(VLIBCSzListFind(list, "D"), 2);
        EXPECT_EQ(VLIBCSzListFind(list, "d"), -1);
        EXPECT_EQ(VLIBCSzListGet(list, -1), nullptr);
        VLIBCSzListFree(list);
        VLIBCSzHashFree(VLIBCSzHashAlloc(capacity));
    }
}

TEST(Hashes, HoldWhatWasLastSet) {
    VLIBC_SZHASH* hash = nullptr;
    for (int round = 0; round < 3; ++round) {
        for (int i = 0; i < 5000; ++i) {
            const std::string key = "key" + std::to_string(i % 2500);
            ASSERT_EQ(VLIBCSzHashSetValue(&hash, key.c_str(), std::to_string(i).c_str()), 0);
        }
        EXPECT_STREQ(VLIBCSzHashGetValue(hash, "key0"), "2500");
        EXPECT_STREQ(VLIBCSzHashGetValue(hash, "key2499"), "4999");
        EXPECT_EQ(VLIBCSzHashGetValue(hash, "key2500"), nullptr);
        VLIBCHashRemoveAll(hash);
        EXPECT_EQ(VLIBCSzHashGetValue(hash, "key0"), nullptr);
    }
    EXPECT_EQ(VLIBCSzHashSetValue(&hash, "k", nullptr), -1);
    VLIBCSzHashFree(hash);
}

TEST(ErrorSlot, BelongsToTheThread) {
    VLIBCErrSetEx(0x1234, "mine.cpp", 7);
    std::thread([] {
        EXPECT_EQ(VLIBCErrGet(), 0);
        VLIBCErrSetEx(0x4321, std::string(500, 'f').c_str(), 8);
        EXPECT_GT(std::strlen(VLIBCErrorGetFile()), 100U);
    }).join();
    VLIBCErrSetEx(VLIBCErrGet(), VLIBCErrorGetFile(), VLIBCErrorGetLine());
    EXPECT_EQ(VLIBCErrGet(), 0x1234);
    EXPECT_STREQ(VLIBCErrorGetFile(), "mine.cpp");
    EXPECT_EQ(VLIBCErrorGetLine(), 7);
}

TEST(Texts, AreTrimmedAtBothEnds) {
    const std::pair<const char*, const char*> cases[] = {
        {"", ""}, {" \t\n", ""}, {"a", "a"}, {"\r\n a b \v\f", "a b"}};
    for (const auto& [text, trimmed] : cases) {
        std::string buffer = text;
        EXPECT_EQ(VLIBCStrTrimSpace(buffer.data(), 0), 0);
        EXPECT_STREQ(buffer.c_str(), trimmed);
    }
}

TEST(Files, AreLockedForAsLongAsAsked) {
    const PrivateFolder folder;
    const std::string path = folder / "lock";
    const auto lock = [&](int mode, int seconds) {
        int fd = -1;
        return VLIBCFileLockTimeByFile(path.c_str(), mode, seconds, &fd) == 0 ? fd : -1;
    };
    const int held = lock(1, 30);
    ASSERT_GE(held, 0);
    EXPECT_EQ(lock(1, 0), -1);
    EXPECT_EQ(lock(0, -5), -1);
    std::thread waiter([&] { EXPECT_GE(lock(1, 30), 0); });
    EXPECT_EQ(VLIBCFileUnlockByFile(held), 0);
    waiter.join();  // and keeps its lock
    EXPECT_EQ(fcntl(held, F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(lock(1, 0), -1);
    beforeLocking = [&] { unlink(path.c_str()); };  // a lock on a file without its name excludes nobody
    EXPECT_GE(lock(0, 1), 0);
    EXPECT_GE(lock(0, 0), 0);
    EXPECT_EQ(lock(1, 0), -1);
    int untouched = -7;
    EXPECT_EQ(VLIBCFileLockTimeByFile((folder / "no/lock").c_str(), 1, 0, &untouched), -1);
    EXPECT_EQ(untouched, -7);
    EXPECT_EQ(VLIBCFileUnlockByFile(-1), -1);
}

TEST(Files, AreFoundAndMade) {
    const PrivateFolder folder;
    const std::string file = folder / "file";
    EXPECT_EQ(VLIBCFileExist(file.c_str()), 0);
    EXPECT_EQ(VLIBCFileTouch(file.c_str()), 0);
    WriteText(file, "kept");
    EXPECT_EQ(VLIBCFileTouch(file.c_str()), 0);
    EXPECT_EQ(ReadText(file), "kept");
    EXPECT_EQ(VLIBCFileExist(file.c_str()), 1);
    EXPECT_EQ(VLIBCFileCheckDir(file.c_str()), 0);
    EXPECT_EQ(VLIBCFileCheckDir("/"), 1);
    EXPECT_EQ(VLIBCFileTouch((folder / "no/file").c_str()), -1);
}

TEST(Processes, AreKnownByTheirCommand) {
    int input[2];
    int started[2];
    ASSERT_EQ(pipe2(input, O_CLOEXEC) | pipe2(started, O_CLOEXEC), 0);
    const std::string longText = "two words\nthree" + std::string(3000, 'x');
    const pid_t child = fork();
    if (child == 0) {
        dup2(input[0], STDIN_FILENO);
        execl("/bin/cat", "cat", "-", longText.c_str(), nullptr);
    }
    close(started[1]);
    char none = 0;
    EXPECT_EQ(read(started[0], &none, 1), 0);  // closed by the exec
    VLIBC_PROC* const alive = VLIBCProcGetByPid(child);
    ASSERT_NE(alive, nullptr);
    EXPECT_EQ(alive->pid, child);
    EXPECT_THAT(alive->cmd, testing::StartsWith("cat - two words threexxx"));
    EXPECT_EQ(std::strlen(alive->cmd), 1023U);  // what a caller's buffer holds
    VLIBCProcFree(alive);
    kill(child, SIGKILL);
    siginfo_t ended{};
    waitid(P_PID, static_cast<id_t>(child), &ended, WEXITED | WNOWAIT);
    VLIBC_PROC* const dead = VLIBCProcGetByPid(child);  // has no arguments, like a thread of the kernel
    ASSERT_NE(dead, nullptr);
    EXPECT_STREQ(dead->cmd, "cat");
    VLIBCProcFree(dead);
    waitid(P_PID, static_cast<id_t>(child), &ended, WEXITED);
    for (const pid_t pid : {child, pid_t{0}, pid_t{-1}}) EXPECT_EQ(VLIBCProcGetByPid(pid), nullptr);
}

TEST(Shares, AreTheFoldersWithOrdinaryNames) {
    const PrivateFolder folder;
    for (const char* name : {"video", "home", "@appstore", ".hidden", "lost+found", "a b"}) {
        mkdir((folder / name).c_str(), 0755);
    }
    WriteText(folder / "file", "");
    EXPECT_EQ(symlink("/", (folder / "link").c_str()), 0);
    VLIBC_SZLIST* list = nullptr;
    EXPECT_EQ(VEMOShareEnumByMntPathAndEnumType((folder / "").c_str(), 0x0F0F, &list), 3);
    EXPECT_THAT(Items(list), ElementsAre("a b", "home", "video"));
    EXPECT_EQ(VEMOShareEnumByMntPathAndEnumType((folder / "none").c_str(), 0x0F0F, &list), -1);
    VLIBCSzListFree(list);
}

TEST(Log, GetsOneLineForWhatWasGiven) {
    const HashOwner hash = MakeHash({{"%SPACE_ID%", "Volume 1\nforged"}});
    VLIBC_SZHASH* raw = hash.get();
    EXPECT_EQ(VEMOLogSet1(0x1, 0x3, 0x116000B2, "Volume %s 1", nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(VEMOSysNotifySendNotifiction("SSDCacheMissing", &raw), 0);
    EXPECT_THAT(logged, ElementsAre("5: event 0x116000B2 type 0x1 level 0x3 [Volume %s 1]",
                                    "5: notification SSDCacheMissing [%SPACE_ID%=Volume 1 forged]"));
    EXPECT_NE(VEMOSysNotifySendNotifiction(nullptr, nullptr), 0);
}

}  // namespace
