// What a crash, a full disk or a fault of the disk leaves of a file that is being written.
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <utility>

#include "fault_injection.h"
#include "hash_owner.h"
#include "support/private_folder.h"

namespace {

using faults::Kind;

class FileSafety : public testing::TestWithParam<bool> {
  protected:
    FileSafety() {
        WriteText(file_, old_);
        chmod(file_.c_str(), 0640);
        owner_ = geteuid() != 0 ? geteuid() : 1234;
        EXPECT_EQ(chown(file_.c_str(), owner_, getegid()), 0);
        Write();
        new_ = ReadText(file_);
        WriteText(file_, old_);
    }
    int Write() const { return VLIBCFileSetSection(file_.c_str(), "s", nullptr, values_.get(), nullptr); }
    void ExpectModeAndOwnerKept() const {
        struct stat status{};
        ASSERT_EQ(stat(file_.c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 07777, 0640U);
        EXPECT_EQ(status.st_uid, owner_);
    }
    // Runs `body` in a process of its own; its wait status.
    static int InChild(const std::function<void()>& body) {
        const pid_t pid = fork();
        if (pid == 0) {
            body();
            _exit(0);
        }
        int status = 0;
        EXPECT_EQ(waitpid(pid, &status, 0), pid);
        return status;
    }

    uid_t owner_ = 0;
    PrivateFolder folder_;
    const std::string file_ = folder_ / "test.conf";
    const std::string old_ = "[s]\nk=old\n# a remark\n[t]\nk=other\n";
    const HashOwner values_ = MakeHash({{"k", std::string(500, 'n')}, {"j", "new"}});
    std::string new_;
};

INSTANTIATE_TEST_SUITE_P(WithAndWithoutNamelessFiles, FileSafety, testing::Bool());

TEST_P(FileSafety, KilledAtAnyInstantLeavesTheOldOrTheNewFile) {
    int killed = 0;
    for (int call = 1;; ++call) {
        WriteText(file_, old_);
        const int status = InChild([&] {
            faults::Begin({.kind = Kind::kKill, .atCall = call, .nameless = GetParam()});
            Write();
        });
        if (WIFEXITED(status)) break;
        ++killed;
        EXPECT_THAT(ReadText(file_), testing::AnyOf(old_, new_)) << "killed at call " << call;
        ExpectModeAndOwnerKept();
    }
    EXPECT_GE(killed, 7);  // openat, write, fchown, fchmod, fsync, renameat, fsync
    EXPECT_EQ(ReadText(file_), new_);
    EXPECT_EQ(folder_.EntryCount(), 1)
        << "what those that were killed left behind is not removed by the next";
}

TEST_P(FileSafety, EveryFaultIsReportedAndLosesNothing) {
    for (const Kind kind : {Kind::kFailOnce, Kind::kFailFromThere}) {
        for (const int error : {ENOSPC, EIO}) {
            for (int call = 1;; ++call) {
                WriteText(file_, old_);
                faults::Begin({.kind = kind, .atCall = call, .error = error, .nameless = GetParam()});
                const int result = Write();
                if (faults::End().size() < static_cast<size_t>(call))
                    break;  // there is no such call any more
                EXPECT_THAT(ReadText(file_), testing::AnyOf(result > 0 ? new_ : old_, new_)) << call;
                EXPECT_TRUE(kind == Kind::kFailOnce || result < 0) << call;
                EXPECT_EQ(folder_.EntryCount(), 1) << "left behind after a fault of call " << call;
                ExpectModeAndOwnerKept();
            }
        }
    }
}

TEST_P(FileSafety, DataReachTheDiskBeforeTheNameAndTheNameBeforeTheResult) {
    faults::Begin({.nameless = GetParam(), .shortWrites = true});
    EXPECT_EQ(Write(), 2);
    std::vector<std::string> calls = faults::End();
    EXPECT_EQ(ReadText(file_), new_);
    std::erase_if(calls, [](const std::string& name) { return name != "fsync" && name != "renameat"; });
    EXPECT_THAT(calls, testing::ElementsAre("fsync", "renameat", "fsync"));
}

TEST_F(FileSafety, AFullDiskLeavesTheOldFile) {
    const int status = InChild([&] {
        signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{100, 100};
        setrlimit(RLIMIT_FSIZE, &limit);
        _exit(Write() < 0 && VLIBCErrGet() == 0x0B00 ? 7 : 8);
    });
    EXPECT_EQ(WEXITSTATUS(status), 7);
    EXPECT_EQ(ReadText(file_), old_);
    EXPECT_EQ(folder_.EntryCount(), 1);
}

TEST_F(FileSafety, ALinkStaysALink) {
    const std::string link = folder_ / "link";
    const std::string dangling = folder_ / "dangling";
    ASSERT_EQ(symlink("test.conf", link.c_str()), 0);
    ASSERT_EQ(symlink((folder_ / "made").c_str(), dangling.c_str()), 0);
    EXPECT_EQ(VLIBCFileSetSection(link.c_str(), "s", nullptr, values_.get(), nullptr), 2);
    EXPECT_EQ(ReadText(file_), new_);
    ExpectModeAndOwnerKept();
    EXPECT_EQ(VLIBCFileSetKeyValue(dangling.c_str(), "k", "v", 0), 1);
    EXPECT_EQ(ReadText(folder_ / "made"), "k=v\n");
    EXPECT_TRUE(std::filesystem::is_symlink(link) && std::filesystem::is_symlink(dangling));
    if (geteuid() != 0) GTEST_SKIP() << "only root can lay a link of somebody else";
    ASSERT_EQ(lchown(link.c_str(), 1234, 4321), 0);
    EXPECT_LT(VLIBCFileSetSection(link.c_str(), "s", nullptr, values_.get(), nullptr), 0);
}

TEST_F(FileSafety, AFailedAllocationIsAFailedCall) {
    VLIBC_SZHASH* hash = nullptr;
    VLIBC_SZLIST* list = nullptr;
    char value[16];
    const std::string pairs = folder_ / "pairs";
    const std::function<bool()> calls[] = {
        [&] { return Write() > 0; },
        [&] { return VLIBCFileGetSection(file_.c_str(), "s", &hash) > 0; },
        [&] { return VLIBCFileEnumSection(file_.c_str(), &list) > 0; },
        [&] { return VLIBCFileRemoveSection(file_.c_str(), "t") >= 0; },
        [&] { return VLIBCFileSetKeyValue(pairs.c_str(), "k", "a value of some length", 0) > 0; },
        [&] { return VLIBCFileGetKeyValue(pairs.c_str(), "k", value, sizeof value, 0) > 0; },
        [&] { return VLIBCStrTok("a,b", ",", &list) > 0; },
        [&] { return VLIBCExecl("true", VLIBC_EXEC_WAIT, nullptr) == 0; },
        [&] { return VLIBCPclose(VLIBCPopen("/bin/true", "r", nullptr)) == 0; },
    };
    for (const auto& call : calls) {
        int failures = 0;
        for (bool done = false; !done; ++failures) {
            faults::FailAllocation(failures + 1);
            done = call();
            ASSERT_NE(done, faults::FailAllocation(0)) << "after allocation " << failures;
        }
        EXPECT_GT(failures, 1);
        EXPECT_THAT(ReadText(file_), testing::HasSubstr("[s]\nk="));
        VLIBCSzHashFree(std::exchange(hash, nullptr));
        VLIBCSzListFree(std::exchange(list, nullptr));
    }
}

}  // namespace
