// What a command meets on the appliance: each case runs on one of its own.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <vector>

#include "simulation/shell.h"

namespace {

using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

const std::string kCreate = "flashcache_create -s 16384k -p back cachedev_0 /dev/md3 /dev/vg1/volume_1";
const std::string kLoad = "flashcache_load /dev/md3 cachedev_0 /dev/vg1/volume_1";
const std::string kProc = "/proc/flashcache/md3+volume_1/";
const std::string kKnobs = "/proc/sys/dev/flashcache_md3+volume_1/";

// A command that must work; its output.
std::string Must(const std::string& script) {
    const ShellResult result = Shell("set -e\n" + script);
    EXPECT_EQ(result.status, 0) << script << "\n" << result.output;
    return result.output;
}

void InsertModules() {
    Must("for m in vemo_flashcache_control flashcache flashcache_vemo; do insmod /lib/modules/$m.ko; done");
}

void Set(const std::string& knob, int value) {
    Must("sysctl -q dev.flashcache_md3+volume_1." + knob + "=" + std::to_string(value));
}

void Fault(const std::string& name, const std::string& value) {
    Must("vemo-appliance fault '" + name + "' '" + value + "'");
}

// Writes whole blocks of 4 KiB, past the page cache, so that each is in the cache when this returns.
void WriteBlocks(int first, int count) {
    Must("dd if=/dev/urandom of=/dev/mapper/cachedev_0 bs=4k oflag=direct status=none seek=" +
         std::to_string(first) + " count=" + std::to_string(count));
}

unsigned DirtyBlocks() {
    int initial = 0;
    unsigned remaining = 0;
    EXPECT_EQ(std::sscanf(ReadFile(kProc + "flashcache_progress").c_str(),
                          "initial_num_of_dirty=%d remaining_num_of_dirty=%u", &initial, &remaining),
              2);
    return remaining;
}

class ApplianceTest : public testing::Test {
  protected:
    ApplianceTest() { InsertModules(); }
};

class CacheOnAppliance : public ApplianceTest {
  protected:
    CacheOnAppliance() {
        EXPECT_EQ(Must(kCreate), "");
        Fault("cleaning", "pause");
    }
};

TEST(BareAppliance, NeedsItsModules) {
    EXPECT_EQ(Shell(kCreate).status, 1);
    EXPECT_THAT(Must("lsmod"), Not(HasSubstr("flashcache")));
    InsertModules();
    EXPECT_THAT(Must("lsmod"), ContainsRegex("\nflashcache +[0-9]+ +0\n"));
    EXPECT_THAT(Shell("insmod /lib/modules/flashcache.ko").output, HasSubstr("File exists"));
    EXPECT_NE(Shell("insmod /lib/modules/other.ko").status, 0);
    Must(kCreate);
    EXPECT_THAT(Shell("rmmod flashcache").output, HasSubstr("in use"));
    Must("dmsetup remove cachedev_0; rmmod flashcache");
    EXPECT_NE(Shell("rmmod flashcache").status, 0);
}

TEST(BareAppliance, HasWhatProgramsExpect) {
    Must("test -d /usr/vemo/etc -a -d /etc.defaults -a -d /volume1 -a -d /run/lock");
    EXPECT_EQ(Must("stat --file-system --format=%T /tmp; echo x > /tmp/file; cat /tmp/file"), "tmpfs\nx\n");
    EXPECT_EQ(Must("ps -o comm= -p 2"), "vemo-kernel\n");
    EXPECT_EQ(Must("readlink /proc/self/fd/1 | cut -c1-4; sysctl -n kernel.ostype"), "pipe\nLinux\n");
    openlog("some-test", 0, LOG_USER);
    syslog(LOG_ERR, "line one\nline two\n");
    syslog(LOG_DEBUG, "last");
    EXPECT_THAT(ReadFile("/var/log/messages"),
                ContainsRegex(" <3> some-test: line one#012line two\n.* <7> some-test: last\n$"));
    Must(": > /var/log/messages");
    EXPECT_EQ(ReadFile("/var/log/messages"), "");
}

TEST_F(CacheOnAppliance, ReportsInTheFormatsOfTheAppliance) {
    WriteBlocks(0, 100);
    char ssd[128] = "", disk[128] = "", mode[128] = "", size[128] = "", total[128] = "", cached[128] = "";
    int pin = -1;
    std::istringstream lines(Must("dmsetup table /dev/mapper/cachedev_0"));
    for (std::string line; std::getline(lines, line);) {
        std::sscanf(
            line.c_str(),
            "\tssd de%*[^(](%127[^)])%*[^a-zA-Z]disk de%*[^(](%127[^)])%*[^a-zA-Z]cache mod%*[^(](%127[^)]",
            ssd, disk, mode);
        std::sscanf(line.c_str(),
                    "\tcapacity(%*[^)])%*[^a-zA-Z]associativity(%*[^)])%*[^a-zA-Z]data block size(%127[^K]K)",
                    size);
        std::sscanf(line.c_str(), "\ttotal block%*[^(](%127[^)])%*[^a-zA-Z]cached block%*[^(](%127[^)]",
                    total, cached);
        std::sscanf(line.c_str(), "\tsplit-io(%*[^)]) support pin file(%d)", &pin);
    }
    EXPECT_EQ((std::vector<std::string>{ssd, disk, mode, size, total, cached}),
              (std::vector<std::string>{"/dev/md3", "/dev/vg1/volume_1", "WRITE_BACK", "4", "4096", "100"}));
    EXPECT_EQ(pin, 0);
    EXPECT_EQ(DirtyBlocks(), 100U);
    EXPECT_EQ(ReadFile(kProc + "flashcache_attribute"), "none\n");
    EXPECT_THAT(ReadFile(kProc + "flashcache_errors"), ContainsRegex("\nwrite_disk_sync_errors=0\n$"));
}

TEST_F(CacheOnAppliance, CountsWhatHappens) {
    const auto counter = [](const std::string& name) {
        const std::string text = " " + ReadFile(kProc + "flashcache_stats");
        const size_t at = text.find_first_of(" \n") == std::string::npos ? 0 : text.find(name + "=");
        return std::atoi(text.c_str() + at + name.size() + 1);
    };
    WriteBlocks(0, 64);
    WriteBlocks(0, 64);
    Must("dd if=/dev/mapper/cachedev_0 of=/dev/null bs=4k count=80 iflag=direct status=none");
    EXPECT_EQ(counter("\nread_hits"), 64);
    EXPECT_EQ(counter(" write_hits"), 64);
    EXPECT_EQ(counter(" write_miss_ssd"), 64);
    EXPECT_EQ(counter(" dirty_write_hit_percent"), 50);
    EXPECT_EQ(counter(" disk_reads"), 16);
    Set("skip_seq_thresh_kb", 64);
    WriteBlocks(1000, 100);
    EXPECT_EQ(counter(" uncached_sequential_writes"), 100 - 16);
    Set("zero_stats", 1);
    EXPECT_THAT(ReadFile(kProc + "flashcache_stats"), testing::StartsWith("reads=0 writes=0\nread_hits=0 "));
}

TEST_F(CacheOnAppliance, KeepsDirtyBlocksOnTheSsdAloneUntilTheyAreCleaned) {
    const std::string zero = Must("head -c 409600 /dev/zero | sha256sum");
    WriteBlocks(0, 100);
    const std::string written = Must("head -c 409600 /dev/mapper/cachedev_0 | sha256sum");
    EXPECT_EQ(Must("head -c 409600 /dev/vg1/volume_1 | sha256sum"), zero);
    Fault("cleaning", "40");
    EXPECT_EQ(DirtyBlocks(), 60U);
    Set("do_sync", 1);
    Fault("cleaning", "20");
    EXPECT_EQ(ReadFile(kProc + "flashcache_progress"), "initial_num_of_dirty=60 remaining_num_of_dirty=40\n");
    Set("stop_sync", 1);
    Fault("cleaning", "run");
    EXPECT_EQ(DirtyBlocks(), 40U);
    Set("fast_remove", 0);
    Must("dmsetup remove --retry cachedev_0");
    EXPECT_EQ(Must("head -c 409600 /dev/vg1/volume_1 | sha256sum"), written);
}

TEST_F(CacheOnAppliance, LeavesDirtyBlocksOnAFastRemovalForTheNextLoad) {
    WriteBlocks(0, 100);
    const std::string sum = "head -c 409600 /dev/mapper/cachedev_0 | sha256sum";
    const std::string written = Must(sum);
    Set("fast_remove", 1);
    Must("dmsetup remove cachedev_0");
    EXPECT_EQ(access("/dev/mapper/cachedev_0", F_OK), -1);
    EXPECT_EQ(access(kProc.c_str(), F_OK), -1);
    EXPECT_EQ(access(kKnobs.c_str(), F_OK), -1);
    EXPECT_THAT(Must("flashcache_load -c /dev/md3"), HasSubstr("metadata existed"));
    Must(kLoad);
    EXPECT_EQ(DirtyBlocks(), 100U);
    EXPECT_EQ(Must(sum), written);
}

TEST_F(CacheOnAppliance, IsNotRemovedWhileItIsHeld) {
    Must("mkfs.ext4 -q /dev/mapper/cachedev_0; mount /dev/mapper/cachedev_0 /volume1");
    const ShellResult mounted = Shell("dmsetup remove --retry cachedev_0");
    EXPECT_EQ(mounted.status, 1);
    EXPECT_THAT(mounted.output, HasSubstr("Device or resource busy\nCommand failed"));
    EXPECT_NE(Shell("mount /dev/vg1/volume_1 /volume1").status, 0);
    Must("umount /volume1");
    {
        std::ifstream holder("/dev/mapper/cachedev_0");
        EXPECT_EQ(Shell("dmsetup remove cachedev_0").status, 1);
        EXPECT_THAT(Shell("/bin/lsof /dev/mapper/cachedev_0").output, HasSubstr("/dev/mapper/cachedev_0"));
    }
    Fault("remove", "busyx1");
    EXPECT_EQ(Shell("dmsetup remove cachedev_0").status, 1);
    Must("dmsetup remove cachedev_0");
}

TEST_F(ApplianceTest, WritesTheVersionWhereItIsLookedFor) {
    const std::string word = "dd if=/dev/md3 bs=1 skip=296 count=4 status=none | od -An -tu4";
    for (const auto& [option, version, size] :
         {std::tuple("", "2", "(4K)"), std::tuple("-n", "10", "(64K)"), std::tuple("", "2", "(4K)")}) {
        EXPECT_THAT(Must(word), HasSubstr(" 0\n"));
        Must(std::string("flashcache_create ") + option + " -p around cachedev_7 /dev/md3 /dev/vg1/volume_1");
        EXPECT_THAT(Must(word), HasSubstr(std::string(" ") + version + "\n"));
        EXPECT_THAT(Must("dmsetup table cachedev_7"), HasSubstr(size));
        EXPECT_EQ(Shell("flashcache_destroy -f /dev/md3").status, 1) << "in use";
        Must("dmsetup remove cachedev_7");
        EXPECT_EQ(Shell(kCreate).status, 1) << "a cache lies there already";
        Must("flashcache_destroy -f /dev/md3");
        EXPECT_EQ(Shell("flashcache_destroy -f /dev/md3").status, 1) << "nothing lies there any more";
    }
}

TEST_F(ApplianceTest, ToolsRefuseBadCommandLines) {
    for (const char* bad : {"flashcache_create", "flashcache_create -p back c /dev/md3",
                            "flashcache_create -p up c /dev/md3 /dev/vg1/volume_1",
                            "flashcache_create -s 1x -p back c /dev/md3 /dev/vg1/volume_1",
                            "flashcache_create -s 9g -p back c /dev/md3 /dev/vg1/volume_1",
                            "flashcache_create -p back c /dev/md9 /dev/vg1/volume_1",
                            "flashcache_create -p back c /dev/md3 /dev/md3",
                            "flashcache_create -p back a/b /dev/md3 /dev/vg1/volume_1",
                            "flashcache_load /dev/md3 c", "flashcache_load /dev/md3 c /dev/vg1/volume_1",
                            "flashcache_destroy /dev/md3", "flashcache_expand -p back c", "dmsetup",
                            "dmsetup table c", "dmsetup remove c", "rmmod", "insmod"}) {
        const ShellResult result = Shell(bad);
        EXPECT_EQ(result.status, 1) << bad;
        EXPECT_NE(result.output, "") << bad;
    }
}

TEST_F(CacheOnAppliance, FollowsItsVolumeOnlyWhenExpanded) {
    const std::string sizes = "blockdev --getsize64 /dev/vg1/volume_1 /dev/mapper/cachedev_0";
    const std::string expand = "flashcache_expand -p back cachedev_0 /dev/md3 /dev/vg1/volume_1";
    Must("mkfs.ext4 -q /dev/mapper/cachedev_0; vemo-appliance grow /dev/vg1/volume_1 1100M");
    EXPECT_EQ(Must(sizes), "1153433600\n1073741824\n");
    EXPECT_EQ(Shell("flashcache_expand -p back -n cachedev_0 /dev/md3 /dev/vg1/volume_1").status, 1);
    EXPECT_EQ(Must(expand), "");
    EXPECT_EQ(Must(sizes), "1153433600\n1153433600\n");
    Must(
        "e2fsck -fp /dev/mapper/cachedev_0; resize2fs /dev/mapper/cachedev_0; e2fsck -fn "
        "/dev/mapper/cachedev_0");
    EXPECT_NE(Shell("vemo-appliance grow /dev/vg1/volume_1 1G").status, 0) << "it does not shrink";
}

TEST_F(CacheOnAppliance, CountsFailedWriteBacks) {
    WriteBlocks(0, 10);
    Fault("writeback", "fail@2x3");
    for (int i = 0; i < 3; ++i) {
        Fault("cleaning", "10");
    }
    EXPECT_EQ(DirtyBlocks(), 8U) << "failed blocks stay dirty";
    EXPECT_THAT(ReadFile(kProc + "flashcache_errors"), HasSubstr("write_disk_sync_errors=3\n"));
    Set("do_sync", 1);
    EXPECT_THAT(ReadFile(kProc + "flashcache_errors"), HasSubstr("write_disk_sync_errors=0\n"));
    Fault("writeback", "fail");
    std::ofstream(kProc + "flashcache_attribute").write("force-remove", 13);
    EXPECT_EQ(ReadFile(kProc + "flashcache_attribute"), "force-remove\n");
    Fault("cleaning", "8");
    EXPECT_EQ(DirtyBlocks(), 0U) << "what cannot be written back is given up";
}

// What write() to a knob's file says: 0, or errno.
int WriteKnob(const std::string& knob, const std::string& text) {
    const int file = open((kKnobs + knob).c_str(), O_WRONLY | O_CLOEXEC);
    const ssize_t written = write(file, text.data(), text.size());
    const int error = written < 0 ? errno : 0;
    close(file);
    return error;
}

TEST_F(CacheOnAppliance, KnobsTakeWhatLiesInTheirRange) {
    const struct {
        const char* knob;
        int least;
        int most;
    } cases[] = {{"fallow_delay", 0, 31536000},
                 {"fallow_clean_speed", 1, 100},
                 {"cache_all", 0, 1},
                 {"fast_remove", 0, 1},
                 {"reclaim_policy", 0, 15},
                 {"pid_expiry_secs", 0, 31536000},
                 {"max_pids", 0, 65536},
                 {"do_pid_expiry", 0, 1},
                 {"max_clean_ios_set", 0, 65536},
                 {"max_clean_ios_total", 0, 65536},
                 {"dirty_thresh_pct", 0, 100},
                 {"stop_sync", 0, 1},
                 {"io_latency_hist", 0, 1},
                 {"skip_seq_thresh_kb", 0, 1 << 30}};
    for (const auto& [knob, least, most] : cases) {
        for (const int good : {least, most}) {
            EXPECT_EQ(WriteKnob(knob, std::to_string(good)), 0) << knob << " = " << good;
            EXPECT_EQ(ReadFile(kKnobs + knob), std::to_string(good) + "\n");
        }
        for (const int bad : {least - 1, most + 1, INT32_MIN, INT32_MAX}) {
            EXPECT_EQ(WriteKnob(knob, std::to_string(bad)), EINVAL) << knob << " = " << bad;
            EXPECT_EQ(ReadFile(kKnobs + knob), std::to_string(most) + "\n") << "the old one stays";
        }
    }
    // These go back to 0 by themselves when their work is done.
    for (const char* knob : {"zero_stats", "do_sync"}) {
        EXPECT_EQ(WriteKnob(knob, "1"), 0) << knob;
        EXPECT_EQ(WriteKnob(knob, "2"), EINVAL) << knob;
        EXPECT_EQ(WriteKnob(knob, "-1"), EINVAL) << knob;
    }
    for (const char* bad : {"abc", "4294967296", "1 2", "0x1"}) {
        EXPECT_EQ(WriteKnob("cache_all", bad), EINVAL) << bad;
    }
}

TEST_F(CacheOnAppliance, CleansWhatLiesFallow) {
    WriteBlocks(0, 10);
    Set("fallow_clean_speed", 100);
    Fault("cleaning", "run");
    Must("vemo-appliance clock +14m");
    EXPECT_EQ(DirtyBlocks(), 10U) << "fallow_delay is 15 minutes";
    Must("vemo-appliance clock +1m");
    EXPECT_EQ(DirtyBlocks(), 0U);
    EXPECT_THAT(ReadFile(kProc + "flashcache_stats"), HasSubstr("fallow_cleanings=10 "));
    EXPECT_NE(Shell("vemo-appliance clock 15m").status, 0) << "it goes forward alone";
}

TEST_F(CacheOnAppliance, KnobsTakeFaults) {
    EXPECT_EQ(Must("sysctl dev.flashcache_md3+volume_1.fallow_delay"),
              "dev.flashcache_md3+volume_1.fallow_delay = 900\n");
    Fault("knob.*", "reject@1x1");
    Set("cache_all", 0);
    EXPECT_NE(Shell("sysctl dev.flashcache_md3+volume_1.cache_all=1").status, 0);
    EXPECT_EQ(ReadFile(kKnobs + "cache_all"), "0\n");
    Set("cache_all", 1);
    Fault("file.flashcache_stats", "rubbish");
    EXPECT_EQ(ReadFile(kProc + "flashcache_stats"), "rubbish");
    Fault("file.flashcache_stats", "ok");
    EXPECT_THAT(ReadFile(kProc + "flashcache_stats"), HasSubstr("reads="));
}

TEST_F(ApplianceTest, ToolsMisbehaveAsTold) {
    Fault("tool.dmsetup", "fail:3x1");
    EXPECT_EQ(Shell("dmsetup ls").status, 3);
    Fault("tool.dmsetup", "crash@1x1");
    EXPECT_EQ(Shell("dmsetup ls").status, 0);
    EXPECT_EQ(Shell("dmsetup ls").status, 139);
    Fault("tool.dmsetup", "flood:10x1");
    EXPECT_EQ(Shell("dmsetup ls").output.size(), 2U * 10U * 4001U);
    Fault("tool.dmsetup", "rubbishx1");
    EXPECT_THAT(Shell("dmsetup ls").output, HasSubstr("%s%n"));
    Fault("tool.dmsetup", "hangx1");
    EXPECT_EQ(Shell("timeout 0.2 dmsetup ls").status, 124);
    EXPECT_EQ(Shell("dmsetup ls").status, 0);
}

TEST(Appliance, FaultsBefallTheMachinesOwnPrograms) {
    Fault("tool.cp", "fail:3@1x1");
    EXPECT_EQ(Shell("echo one > /tmp/a; cp /tmp/a /tmp/b; cat /tmp/b").output, "one\n");
    EXPECT_EQ(Shell("cp /tmp/a /tmp/b").status, 3);
    EXPECT_EQ(Shell("cp /tmp/a /tmp/b").status, 0);
    Fault("tool.lsmod", "crash");
    EXPECT_EQ(Shell("lsmod").status, 139);
    Fault("tool.lsmod", "ok");
    EXPECT_THAT(Shell("/sbin/lsmod").output, HasSubstr("Module "));
}

TEST(Appliance, ListsFaultsAndRefusesThoseThatAreNone) {
    const std::string name = "vemo-appliance fault ";
    const std::pair<const char*, const char*> cases[] = {
        {"no.such.thing 1", "there is no fault no.such.thing"},
        {"tol.cp fail", "did you mean tool.cp?"},
        {"knob.dirty_thresh reject", "did you mean knob.dirty_thresh_pct?"},
        {"file.flashcache_stat x", "did you mean file.flashcache_stats?"},
        {"writeback busy", "its actions are fail"},
        {"tool.cp fail:x", "no number belongs there"},
        {"tool.cp hang:3", "no number belongs there"},
        {"read.md4 fail", "did you mean read.md3?"},
        {"write.md3 fail:4096", "takes OFFSET+LENGTH"},
        {"write.md3 fail:1+18446744073709551615", "takes OFFSET+LENGTH"},
        {"latency.md3 wait", "takes milliseconds"},
        {"latency.md3 wait:60001", "takes milliseconds"},
        {"tool.cp fail:99999999999999999999", "no number belongs there"},
        {"tool.cp fail@x", "not ACTION[@SKIP][xTIMES]"},
        {"writeback", "NAME and VALUE"},
    };
    for (const auto& [words, why] : cases) {
        const ShellResult refused = Shell(name + words);
        EXPECT_EQ(refused.status, 125) << words;
        EXPECT_THAT(refused.output, HasSubstr(why));
    }
    EXPECT_THAT(Shell(name + "--list").output, testing::StartsWith("Set:\n\nThere are:\nwriteback\n"));
    Fault("tool.dmsetup.remove", "hang@2x1");
    Fault("cleaning", "pause");
    EXPECT_THAT(Shell(name + "--list").output,
                testing::StartsWith("Set:\ntool.dmsetup.remove hang@2x1\ncleaning pause\n"));
}

}  // namespace
