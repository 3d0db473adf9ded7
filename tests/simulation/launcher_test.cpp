// Boots seen from the machine: what is kept, what is not, and that nothing is left behind.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <random>
#include <set>
#include <vector>

#include "simulation/boot.h"

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

const std::string kCreate =
    "flashcache_create -s 32768k -p back cachedev_0 /dev/md3 /dev/vg1/volume_1\n"
    "sysctl -q dev.flashcache_md3+volume_1.dirty_thresh_pct=90\n";
const std::string kWrite =
    "mkfs.ext4 -q /dev/mapper/cachedev_0 && mount /dev/mapper/cachedev_0 /volume1\n"
    "dd if=/dev/urandom of=/volume1/file bs=1M count=8 conv=fsync status=none\n"
    "sha256sum /volume1/file > /usr/vemo/etc/sum\n";
const std::string kCheck =
    "mount /dev/mapper/cachedev_0 /volume1 && sha256sum -c --quiet /usr/vemo/etc/sum\n";

// An appliance in the background, with a script whose output it collects in a file.
class Running {
  public:
    Running(const std::string& options, const std::string& script, const std::string& output)
        : output_(output) {
        const std::string line =
            "exec " + kAppliance + " " + options + " sh -c " + Quoted(script) + " >" + output + " 2>&1";
        const char* const arguments[] = {"sh", "-c", line.c_str(), nullptr};
        posix_spawn(&process_, "/bin/sh", nullptr, nullptr, const_cast<char**>(arguments), environ);
    }
    ~Running() { Kill(process_); }

    // Waits, without end but for the test's own, until the script has said a word.
    void AwaitWord(const std::string& word) const {
        while (ReadFile(output_).find(word) == std::string::npos) {
            usleep(2000);
        }
    }
    pid_t Process() const { return process_; }
    // Kills one of its processes and waits for the end of all.
    void Kill(pid_t victim) {
        if (process_ <= 0) {
            return;
        }
        const std::vector<pid_t> all = Processes();
        kill(victim, SIGKILL);
        int status = 0;
        waitpid(process_, &status, 0);
        process_ = 0;
        for (const pid_t process : all) {
            AwaitEnd(process);
        }
    }
    // The launcher, init, and what init started first: the kernel, the command.
    std::vector<pid_t> Processes() const {
        std::vector<pid_t> all = {process_};
        for (size_t i = 0; i < all.size() && i < 2; ++i) {
            const std::string number = std::to_string(all[i]);
            std::istringstream children(ReadFile("/proc/" + number + "/task/" + number + "/children"));
            for (pid_t child = 0; children >> child;) {
                all.push_back(child);
            }
        }
        return all;
    }

  private:
    static void AwaitEnd(pid_t process) {
        const int handle = static_cast<int>(syscall(SYS_pidfd_open, process, 0));
        pollfd ended{handle, POLLIN, 0};
        if (handle >= 0) {
            poll(&ended, 1, 60000);
            close(handle);
        }
    }

    std::string output_;
    pid_t process_ = 0;
};

// What an appliance on this folder could leave on the machine: a loop device, a mount.
std::string LeftBehind(const std::string& folder) {
    return Shell("losetup -a | grep " + folder + "; grep " + folder + " /proc/mounts").output;
}

TEST(Launcher, PassesTheCommandsEndOn) {
    EXPECT_EQ(Boot("", "exit 7").status, 7);
    EXPECT_EQ(Boot("", "kill -TERM $$").status, 128 + SIGTERM);
    EXPECT_EQ(Shell(kAppliance + " no-such-program").status, 127);
    EXPECT_EQ(Shell(kAppliance + " /etc").status, 126);
    EXPECT_EQ(Shell(kAppliance).status, 125);
    EXPECT_EQ(Shell(kAppliance + " --pairs 0 true").status, 125);
    EXPECT_THAT(Shell(kAppliance + " --piars 2 true").output, HasSubstr("did you mean --pairs?"));
    EXPECT_EQ(Shell(kAppliance + " -- echo --pairs").output, "--pairs\n");
    EXPECT_THAT(Shell(kAppliance + " --version").output, testing::StartsWith("vemo-appliance "));
    EXPECT_EQ(Shell(kAppliance + " --volatile true").status, 125)
        << "without a state nothing is there to lose";
    EXPECT_EQ(Boot("", "vemo-appliance fault power cut; sleep 100").status, 137);
    EXPECT_EQ(Shell("echo in | " + kAppliance + " cat").output, "in\n");
    EXPECT_EQ(Shell("cd / && " + kAppliance + " pwd").output, "/\n");
}

TEST(Launcher, SaysWhatIsMissing) {
    const ShellResult noRoot = Shell("setpriv --reuid 65534 --clear-groups " + kAppliance + " true");
    EXPECT_EQ(noRoot.status, 125);
    EXPECT_THAT(noRoot.output, HasSubstr("sudo"));
    const ShellResult noFuse =
        Shell("unshare -m sh -c 'mount -t tmpfs none /dev && " + kAppliance + " true'");
    EXPECT_EQ(noFuse.status, 125);
    EXPECT_THAT(noFuse.output, HasSubstr("/dev/fuse"));
    EXPECT_THAT(Boot("", kAppliance + " true").output, HasSubstr("appliance already"));
}

TEST(Launcher, KeepsChangesOffTheMachine) {
    const Folder folder;
    std::ofstream(folder / "file") << "machine";
    EXPECT_EQ(Shell("cd " + (folder / "") + " && " + kAppliance +
                    " sh -c 'cat file; echo new > file; touch /etc/x; cat file'")
                  .output,
              "machinenew\n");
    EXPECT_EQ(ReadFile(folder / "file"), "machine");
    EXPECT_FALSE(fs::exists("/etc/x"));
}

TEST(Launcher, IsClosed) {
    const std::string look =
        "hostname; cat /proc/sys/vm/swappiness /proc/sys/net/ipv4/ip_forward /proc/sys/kernel/msgmax; ipcs "
        "-q | wc -l";
    const std::string before = Shell(look).output;
    EXPECT_EQ(Boot("",
                   "hostname inside && hostname; ipcmk -Q >/dev/null && ipcs -q | wc -l; "
                   "echo 1 > /proc/sys/net/ipv4/ip_forward && echo set")
                  .output,
              "inside\n5\nset\n");
    EXPECT_EQ(Boot("",
                   "grep -c : /proc/net/dev; grep -c lo: /proc/net/dev; "
                   "grep -c 127.0.0.1 /proc/net/fib_trie >/dev/null && echo up")
                  .output,
              "1\n1\nup\n");
    EXPECT_EQ(Boot("",
                   "for file in /proc/sys/vm/swappiness /proc/.kernel/sys/vm/swappiness; do "
                   "if (echo 7 > $file) 2>/dev/null; then echo $file; fi; done; "
                   "find /proc/sys /proc/.kernel/sys /proc/.kernel/irq /sys -type f -writable "
                   "! -path \"/proc/sys/net/*\" ! -path \"/proc/sys/dev/flashcache*\" 2>/dev/null")
                  .output,
              "")
        << "what could be set of the machine";
    EXPECT_EQ(Shell(look).output, before);
}

TEST(Launcher, TakesItsLoopDevicesAway) {
    // A device is told by its inode: other boots may make one of the same number at any moment.
    const auto devices = [](const std::string& listing) {
        std::set<std::string> inodes;
        std::istringstream lines(listing);
        for (std::string line; std::getline(lines, line);) {
            inodes.insert(line);
        }
        return inodes;
    };
    const std::string all = "stat -L -c %i /sys/block/loop* 2>/dev/null\n";
    const auto before = devices(Shell(all).output);
    // More than the machine may have kept free.
    const std::string pairs = std::to_string(std::min<std::size_t>(64, before.size() / 2 + 2));
    const auto during = Boot("--pairs " + pairs + " --ssd-size 1M --volume-size 1M",
                             "for disk in /dev/md* /dev/vg*/*; do "
                             "stat -L -c %i /sys/dev/block/$(stat -c %Hr:%Lr $disk); done\n");
    ASSERT_EQ(during.status, 0);
    std::set<std::string> made;
    for (const std::string& device : devices(during.output)) {
        if (!before.contains(device)) {
            made.insert(device);
        }
    }
    EXPECT_FALSE(made.empty());
    // Another boot may have taken one up before it was gone: that one takes it away, then.
    const std::string unused =
        "cd /sys/block && for l in loop*; do [ -e $l/loop ] || stat -L -c %i $l 2>/dev/null; done\n";
    std::vector<std::string> left;
    for (int tries = 0; tries == 0 || (!left.empty() && tries < 100); ++tries) {
        const auto now = devices(Shell(unused).output);
        left.clear();
        std::set_intersection(made.begin(), made.end(), now.begin(), now.end(), std::back_inserter(left));
    }
    EXPECT_TRUE(left.empty()) << left.size() << " of " << made.size() << " are left";
}

TEST(Launcher, KeepsStateFromOneBootToTheNext) {
    const Folder folder;
    const std::string state = "--state " + (folder / "state");
    // Left running and mounted: the end of the command takes the appliance down in order.
    EXPECT_EQ(Boot(state, kModules + kCreate + kWrite + "sleep 100 & logger -t test hello").output, "");
    EXPECT_EQ(Boot(state, "cat /var/log/messages | grep -c hello; lsmod | grep -c flashcache").output,
              "1\n0\n");
    EXPECT_EQ(Boot(state, kModules + kLoad + kCheck).output, "");
    EXPECT_EQ(LeftBehind(folder / ""), "");
    EXPECT_EQ(Boot("", "cat /usr/vemo/etc/sum").status, 1) << "nothing is kept of this one";
}

TEST(Launcher, KeepsNoteOfUnflushedWritesForVolatileDisksAlone) {
    const Folder folder;
    const std::string state = "--state " + (folder / "state");
    const std::string list = "cd " + (folder / "state") + " && ls *.unflushed 2>/dev/null";
    const std::pair<const char*, const char*> boots[] = {
        {"", ""}, {" --volatile", "md3.unflushed\nvolume_1.unflushed\n"}, {"", ""}};
    for (const auto& [option, left] : boots) {
        ASSERT_EQ(Boot(state + option, "true").status, 0);
        EXPECT_EQ(Shell(list).output, left) << option;
    }
}

class KilledLauncher : public testing::TestWithParam<const char*> {};

TEST_P(KilledLauncher, LosesNothingThatWasSynced) {
    const Folder folder;
    const std::string state = "--state " + (folder / "state") + GetParam();
    {
        Running running(state, kModules + kCreate + kWrite + "echo READY; exec cat /dev/zero > /volume1/more",
                        folder / "output");
        running.AwaitWord("READY");
        const ShellResult second = Boot(state, "true");
        EXPECT_EQ(second.status, 125);
        EXPECT_THAT(second.output, HasSubstr("is running on"));
        for (const pid_t process : running.Processes()) {
            kill(process, SIGKILL);
        }
    }
    const ShellResult again =
        Boot(state, kModules + "blkid -p /dev/vg1/volume_1\n" + kLoad + kCheck +
                        "umount /volume1; e2fsck -fn /dev/mapper/cachedev_0 >/dev/null 2>&1; echo fsck=$?");
    EXPECT_EQ(again.output, "fsck=0\n") << "the volume holds nothing yet, the cache everything";
}

INSTANTIATE_TEST_SUITE_P(Disks, KilledLauncher, testing::Values("", " --volatile=1", " --volatile=2"),
                         [](const auto& options) {
                             return options.param[0] == 0 ? std::string("Plain")
                                                          : "Volatile" + std::to_string(options.index);
                         });

TEST(Launcher, LeavesNothingBehindWhateverIsKilled) {
    std::mt19937 random(1);
    for (int i = 0; i < 8; ++i) {
        const Folder folder;
        Running running(
            "--state " + (folder / "state"),
            "echo BOOTED\n" + kModules + kCreate + "while :; do " + kWrite + "umount /volume1; done",
            folder / "output");
        if (i % 2 == 0) {
            running.AwaitWord("BOOTED");
        }
        usleep(static_cast<useconds_t>(random() % 200'000));  // any moment will do
        const std::vector<pid_t> all = running.Processes();
        running.Kill(all[static_cast<size_t>(i / 2) % all.size()]);
        EXPECT_EQ(Boot("--state " + (folder / "state"), "echo up").output, "up\n") << "and the next comes up";
        EXPECT_EQ(LeftBehind(folder / ""), "");
    }
}

TEST(Launcher, RunsManyAtOnce) {
    const Folder folder;
    constexpr int kMany = 6;
    std::vector<std::unique_ptr<Running>> running;
    for (int i = 0; i < kMany; ++i) {
        running.push_back(std::make_unique<Running>(
            "--pairs 2 --volume-size 64M",
            kModules + "flashcache_create -s 16m -p back cachedev_0 /dev/md4 /dev/vg1/volume_2; echo " +
                std::to_string(i) +
                " > /dev/mapper/cachedev_0; sync; head -c 1 /dev/mapper/cachedev_0; ls /dev/mapper; echo "
                "END; cat >/dev/null; sleep 100",
            folder / std::to_string(i)));
    }
    for (int i = 0; i < kMany; ++i) {
        running[static_cast<size_t>(i)]->AwaitWord("END");
        EXPECT_EQ(ReadFile(folder / std::to_string(i)), std::to_string(i) + "cachedev_0\nEND\n");
    }
}

TEST(Launcher, TakesRequestsFromOutside) {
    const Folder folder;
    const std::string state = " --state " + (folder / "state") + " ";
    Running running(state, kModules + kCreate + "echo READY; sleep 100", folder / "output");
    running.AwaitWord("READY");
    EXPECT_EQ(Shell(kAppliance + " enter" + state + "sh -c 'dmsetup ls; exit 3'").output, "cachedev_0\n");
    EXPECT_EQ(
        Shell(kAppliance + " enter --pid " + std::to_string(running.Process()) + " sh -c 'exit 3'").status,
        3);
    EXPECT_EQ(Shell(kAppliance + " fault" + state + "remove busyx1").status, 0);
    EXPECT_EQ(Shell(kAppliance + " fault" + state + "power off").status, 125);
    EXPECT_EQ(Shell(kAppliance + " enter" + state + "dmsetup remove cachedev_0").status, 1);
    EXPECT_EQ(Shell(kAppliance + " grow" + state + "/dev/vg1/volume_1 2G").status, 0);
    EXPECT_EQ(Shell(kAppliance + " enter" + state + "blockdev --getsize64 /dev/vg1/volume_1").output,
              "2147483648\n");
    running.Kill(running.Process());
    const ShellResult gone = Shell(kAppliance + " fault" + state + "remove busy");
    EXPECT_EQ(gone.status, 125);
    EXPECT_THAT(gone.output, HasSubstr("no appliance is running"));
}

}  // namespace
