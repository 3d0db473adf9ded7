// What doctor looks at beside the caches' own files, and how little it starts for it.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <csignal>
#include <ctime>
#include <filesystem>
#include <fstream>

#include "cli/tool.h"

namespace tests {
namespace {

using ::testing::HasSubstr;

constexpr int kWarning = 1;
constexpr int kUnknown = 3;

Json OneFinding(const std::string& code, int exit) {
    return Answer({"doctor", "--check", code}, exit)["findings"][0];
}

TEST(DoctorLook, StartsOneProgramForAllRunningCaches) {
    CreateCache();
    ASSERT_EQ(Tool({"create", "/dev/md4", "/dev/vg1/volume_2", "--size", "32M"}).code, 0);
    for (const char* tool : {"sysctl", "cp", "mv", "lsmod", "vemocachepinfiletool"}) {
        Fault(std::string("tool.") + tool, "fail");
    }
    Fault("tool.dmsetup", "fail@1");
    const Ran ran = Tool({"doctor"});
    EXPECT_EQ(ran.code, 0) << ran.out;
    EXPECT_EQ(Tool({"doctor"}).code, kUnknown) << "that look would have been the second";
}

TEST(DoctorLook, SeesAFlushThatStandsStillFromOneRunToTheNext) {
    constexpr const char* kSample = "/run/vemocachectl/md3+volume_1.flush";
    CreateDirtyCache();
    RunningTool flush({"flush", "cachedev_0", "--json"});
    while (Answer({"flush", "--status", "cachedev_0"})["flush"]["handle_state"] != "flush") {
    }
    EXPECT_EQ(Tool({"doctor"}).code, 0);
    std::uint64_t dirty = 0;
    std::int64_t since = 0;
    ASSERT_TRUE(std::ifstream(kSample) >> dirty >> since);
    EXPECT_EQ(dirty, std::uint64_t{kDirty});
    std::ofstream(kSample) << dirty << " " << since - 90 << " " << since << "\n";
    const auto finding = OneFinding("VFC-D061", kWarning);
    EXPECT_THAT(finding["summary"], HasSubstr("Its flush has made no progress for "));
    EXPECT_GE(finding["details"]["seconds_without_progress"].Number(), 90);
    EXPECT_EQ(finding["details"]["reason"], nullptr);
    std::ofstream(kSample) << dirty << " " << since - 9000 << " " << since - 9000 << "\n";
    EXPECT_EQ(Tool({"doctor"}).code, 0) << "that was another flush";
    std::ofstream(kSample) << dirty + 1 << " " << since - 90 << " " << since << "\n";
    EXPECT_EQ(Tool({"doctor"}).code, 0) << "it gets on";
}

// A /sys in which the SSD lies on a disk of this model.
void ShowModel(const std::string& model) {
    struct stat status{};
    ASSERT_EQ(stat("/dev/md3", &status), 0);
    ASSERT_EQ(RunProgram({"mount", "-t", "tmpfs", "none", "/sys"}).code, 0);
    const std::string disk = "/sys/block/sdx";
    const std::string raid = "/sys/block/md3";
    std::filesystem::create_directories(disk + "/device");
    std::filesystem::create_directories(disk + "/sdx1");
    std::filesystem::create_directories(raid + "/slaves");
    std::filesystem::create_directories("/sys/dev/block");
    std::ofstream(disk + "/device/model") << model << "   \n";
    std::ofstream(disk + "/size") << (std::uint64_t{480} << 30U) / 512 << "\n";
    std::ofstream(disk + "/sdx1/partition") << "1\n";
    std::filesystem::create_symlink(disk + "/sdx1", raid + "/slaves/sdx1");
    std::filesystem::create_symlink(raid, "/sys/dev/block/" + std::to_string(major(status.st_rdev)) + ":" +
                                              std::to_string(minor(status.st_rdev)));
}

TEST(DoctorLook, SeesAnSsdThatIsNotSupportedBeneathItsRaid) {
    CreateCache();
    ShowModel("ODD-1");
    const auto finding = OneFinding("VFC-D033", kWarning);
    EXPECT_THAT(finding["summary"], HasSubstr("ODD-1 of 480.0 GiB"));
    ASSERT_EQ(RunProgram({"umount", "/sys"}).code, 0);
    ShowModel("QM-S400");
    EXPECT_EQ(Tool({"doctor"}).code, 0);
    ASSERT_EQ(RunProgram({"mv", "/etc.defaults/support_ssd.db", "/etc.defaults/gone"}).code, 0);
    EXPECT_EQ(OneFinding("VFC-D033", kUnknown)["code"], "VFC-D110");
}

TEST(DoctorLook, SeesWhoHoldsALock) {
    CreateCache();
    ASSERT_EQ(RunProgram({"dmsetup", "remove", "cachedev_0"}).code, 0);
    EXPECT_EQ(OneFinding("VFC-D010", kWarning)["code"], "VFC-D010");
    const int lock = open("/run/lock/vemocachectl.lock", O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    ASSERT_EQ(flock(lock, LOCK_EX), 0);
    const std::string mine = "vemocachectl create (pid " + std::to_string(getpid()) + "), since now\n";
    ASSERT_EQ(pwrite(lock, mine.data(), mine.size(), 0), static_cast<ssize_t>(mine.size()));
    EXPECT_EQ(Tool({"doctor", "--check", "VFC-D010"}).code, 0) << "it may be under way";
    const auto held = OneFinding("VFC-D091", 0);
    EXPECT_EQ(held["severity"], "info");
    EXPECT_THAT(held["summary"], HasSubstr("(" + std::to_string(getpid()) + ") holds the lock"));
    const std::string gone = "vemocachectl create (pid 99999999), since now\n";
    ASSERT_EQ(pwrite(lock, gone.data(), gone.size(), 0), static_cast<ssize_t>(gone.size()));
    EXPECT_THAT(OneFinding("VFC-D091", kWarning)["summary"], HasSubstr("is gone"));
    close(lock);
    EXPECT_EQ(Tool({"doctor", "--check", "VFC-D091"}).code, 0);
}

TEST(DoctorLook, TellsTheHandleStateAsTheLibraryDoes) {
    CreateCache();
    for (const char* state : {"flush", "repairing", "stop-writeback"}) {
        ASSERT_EQ(Tool({"state", "set", "cachedev_0", state}).code, 0);
        EXPECT_EQ(Answer({"state", "get", "cachedev_0"})["state"]["handle_state"], state);
        EXPECT_EQ(OneFinding("VFC-D062", kWarning)["details"]["handle_state"], state);
    }
}

TEST(DoctorLook, ReckonsTheMemoryAsTheLibraryDoes) {
    CreateCache();
    ASSERT_EQ(Tool({"create", "/dev/md4", "/dev/vg1/volume_2", "--size", "32M", "--format", "original"}).code,
              0);
    const auto needed = Answer({"memory"})["total"]["needed_bytes"];
    std::ofstream("/tmp/meminfo") << "MemTotal:  100000 kB\nMemAvailable:  90000 kB\n";
    ASSERT_EQ(RunProgram({"mount", "--bind", "/tmp/meminfo", "/proc/meminfo"}).code, 0);
    EXPECT_EQ(OneFinding("VFC-D094", kWarning)["details"]["needed_bytes"], needed);
    std::ofstream("/tmp/meminfo") << "MemFree:  1 kB\n";
    EXPECT_EQ(OneFinding("VFC-D094", kUnknown)["code"], "VFC-D111");
}

// A list of 9 million blocks is more than is read unasked.
TEST(DoctorLook, ReadsALongListOfBlocksWhenAskedAlone) {
    CreateCache();
    ASSERT_EQ(Tool({"unload", "cachedev_0"}).code, 0);
    const std::uint64_t slots = 9'000'000;
    constexpr off_t kSlotsOffset = 24;
    const int ssd = open("/dev/md3", O_WRONLY | O_CLOEXEC);
    ASSERT_EQ(pwrite(ssd, &slots, sizeof slots, kSlotsOffset), static_cast<ssize_t>(sizeof slots));
    close(ssd);
    EXPECT_EQ(OneFinding("VFC-D011", kUnknown)["code"], "VFC-D109");
    EXPECT_TRUE(Answer({"doctor", "--deep", "--check", "VFC-D011"})["findings"].empty());
}

}  // namespace
}  // namespace tests
