// What of a volume is counted.
#include <linux/capability.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <thread>
#include <utility>

#include "library/file_statistics_support.h"

namespace {

using spy::Answer;
using spy::ToolRun;
using testing::IsEmpty;

class FileWalkTest : public FileStatisticsTest {
  protected:
    static constexpr const char* kShare = "/volume1/share";

    // A file that counts in the day of now.
    static void MakeToday(const std::string& path, std::size_t bytes = 0) {
        MakeDated(path, fixedNow, bytes);
    }
    static void LinkToday(const std::string& target, const std::string& path) {
        ASSERT_EQ(symlink(target.c_str(), path.c_str()), 0);
        Date(path, fixedNow);
    }
    static void ExpectToday(uint64_t files, uint64_t bytes) {
        const Counted counted = Count();
        EXPECT_EQ(counted.files[0], files);
        EXPECT_EQ(counted.bytes[0], bytes);
        EXPECT_EQ(counted.levels[0], bytes);
    }
    static Answer AnswerOfIscsi(const ToolRun& run, const Answer& answer) {
        EXPECT_EQ(run, (ToolRun{"/usr/vemo/bin/vemoiscsiep", "r", {"--get_root_dir_for_volpath", kVolume}}));
        return answer;
    }
};

TEST_F(FileWalkTest, CountsEachNameWithWhatItOccupies) {
    MakeToday("/volume1/share/plain", 5000);
    ASSERT_EQ(link("/volume1/share/plain", "/volume1/share/hard link"), 0);
    MakeToday("/volume1/share/sparse", 1);
    ASSERT_EQ(truncate("/volume1/share/sparse", 1LL << 30), 0);
    Date("/volume1/share/sparse", fixedNow);
    MakeToday("/volume1/share/folder/below/" + std::string(255, 'n'));
    MakeToday("/volume1/share/line\nend %s%n\xff");
    ASSERT_EQ(mkfifo("/volume1/share/pipe", 0600), 0);
    Date("/volume1/share/pipe", fixedNow);
    Date("/volume1/share/folder", fixedNow);
    sync();  // blocks for what is still to be written are a guess
    ExpectToday(6, 2 * 8192 + 4096);
}

TEST_F(FileWalkTest, LinksCountAsThemselves) {
    MakeToday("/volume1/outside/of/file", 4096);
    std::filesystem::create_directory(kShare);
    LinkToday("/volume1/outside", "/volume1/share/to a folder");
    LinkToday(".", "/volume1/share/loop");
    LinkToday("nowhere", "/volume1/share/dangling");
    LinkToday(std::string(1000, 'x'), "/volume1/share/long");  // too long for the inode: a block
    std::filesystem::remove_all("/volume1/outside");
    ExpectToday(4, 4096);
}

TEST_F(FileWalkTest, StaysOnTheVolume) {
    MakeToday("/volume1/share/file");
    std::filesystem::create_directory("/volume1/share/other");
    ASSERT_EQ(mount("other", "/volume1/share/other", "tmpfs", 0, ""), 0);
    MakeToday("/volume1/share/other/file", 4096);
    ExpectToday(1, 0);
    ASSERT_EQ(umount2("/volume1/share/other", 0), 0);
}

TEST_F(FileWalkTest, WalksSharesAndTheSystemFoldersThatHoldData) {
    for (const char* walked : {"@appstore", "@database", "@iSCSI", "share", "another share"}) {
        MakeToday(std::string(kVolume) + "/" + walked + "/below/file");
    }
    for (const char* other : {"@other/file", "file", "lost+found/file"}) {
        MakeToday(std::string(kVolume) + "/" + other);
    }
    ExpectToday(5, 0);
    EXPECT_THAT(spy::LoggedTexts(), IsEmpty());
}

TEST_F(FileWalkTest, WalksTheIscsiRootThatTheToolNames) {
    MakeToday("/volume1/share/file");
    MakeToday("/volume1/@targets/file");
    MakeToday("/volume1/@targets/file 2");
    const std::string overlong = "/volume1/@targets" + std::string(5000, '/');
    const struct {
        Answer answer;
        uint64_t files;
    } cases[] = {
        {{0, "\t /volume1/@targets \n/volume1/share\n"}, 3},
        {{1, "/volume1/@targets"}, 3},
        {{0, ""}, 1},
        {{0, "\n"}, 1},
        {{0, "/volume1/@targets/file\n"}, 1},
        {{0, "/nowhere\n"}, 1},
        {{0, std::string("\0/volume1/@targets\n", 19)}, 1},
        {{0, overlong + "file\n"}, 3},  // cut to a buffer's size, in which it is still the folder
        {{0, "/volume1/@targets\n", false}, 1},
    };
    for (const auto& test : cases) {
        spy::state().answer = [&](const ToolRun& run) { return AnswerOfIscsi(run, test.answer); };
        ExpectToday(test.files, 0);
    }
    EXPECT_THAT(spy::LoggedTexts(), IsEmpty());
}

// Root without the right to read everything, for a scope.
class NoOverride {
  public:
    NoOverride() { Set(~((1U << CAP_DAC_OVERRIDE) | (1U << CAP_DAC_READ_SEARCH))); }
    NoOverride(const NoOverride&) = delete;
    NoOverride& operator=(const NoOverride&) = delete;
    ~NoOverride() { Set(~0U); }

  private:
    static void Set(uint32_t mask) {
        __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
        __user_cap_data_struct data[2]{};
        ASSERT_EQ(syscall(SYS_capget, &header, data), 0);
        data[0].effective = data[0].permitted & mask;
        ASSERT_EQ(syscall(SYS_capset, &header, data), 0);
    }
};

TEST_F(FileWalkTest, WhatCannotBeReadIsLeftOut) {
    MakeToday("/volume1/share/closed/file");
    MakeToday("/volume1/share/names only/file");
    MakeToday("/volume1/share/secret");
    MakeToday("/volume1/share/z/file");
    chmod("/volume1/share/closed", 0);
    chmod("/volume1/share/names only", 0400);
    chmod("/volume1/share/secret", 0);
    Date("/volume1/share/closed", fixedNow);
    const NoOverride weak;
    ExpectToday(2, 0);
    EXPECT_THAT(spy::LoggedTexts(), IsEmpty());
}

// Makes folders in one another below `path`, each with a file dated long ago on either side of the next
// folder, and at `levels` with one of today.
void MakeDeep(const std::string& path, const std::string& name, unsigned depth,
              const std::vector<unsigned>& levels) {
    const timespec today[] = {{fixedNow, 0}, {fixedNow, 0}};
    std::filesystem::create_directories(path);
    int folder = open(path.c_str(), O_RDONLY | O_DIRECTORY);
    ASSERT_GE(folder, 0);
    for (unsigned level = 0; level < depth; ++level) {
        for (const char* file : {"a", "z", "today"}) {
            if (*file != 't' || std::find(levels.begin(), levels.end(), level) != levels.end()) {
                close(openat(folder, file, O_CREAT | O_WRONLY, 0600));
            }
        }
        utimensat(folder, "today", today, 0);
        ASSERT_EQ(mkdirat(folder, name.c_str(), 0700), 0) << level;
        const int next = openat(folder, name.c_str(), O_RDONLY | O_DIRECTORY);
        ASSERT_GE(next, 0);
        close(std::exchange(folder, next));
    }
    close(folder);
}

TEST_F(FileWalkTest, FoldersBeyondEveryPathDoNotEndTheWalk) {
    MakeDeep(kShare, std::string(100, 'd'), 600, {0, 39, 50, 500});  // 39: the last that a path can name
    MakeDeep("/volume1/shallow", "d", 600, {0, 599});
    MakeToday("/volume1/z/file");
    ExpectToday(7, 0);
    EXPECT_THAT(spy::LoggedTexts(), IsEmpty());
}

TEST_F(FileWalkTest, NoDepthExhaustsTheStack) {
    std::filesystem::create_directory(kShare);
    ASSERT_EQ(mount("deep", kShare, "tmpfs", 0, "nr_inodes=0"), 0);
    MakeDeep(kShare, "d", 8000, {0, 1000});
    pthread_attr_t small;
    pthread_attr_init(&small);
    pthread_attr_setstacksize(&small, 1U << 20U);
    pthread_t walker{};
    const auto count = [](void*) -> void* {
        ExpectToday(2, 0);
        return nullptr;
    };
    ASSERT_EQ(pthread_create(&walker, &small, count, nullptr), 0);
    pthread_join(walker, nullptr);
    pthread_attr_destroy(&small);
    EXPECT_THAT(spy::LoggedTexts(), IsEmpty());
    ASSERT_EQ(umount2(kShare, 0), 0);
}

TEST_F(FileWalkTest, FilesMayVanishDuringTheWalk) {
    for (int i = 0; i < 1000; ++i) {
        MakeToday("/volume1/share/" + std::to_string(i) + "/stays");
    }
    std::atomic<bool> walking = true;
    std::thread churn([&] {
        for (unsigned i = 0; walking; ++i) {
            const std::string path = "/volume1/share/" + std::to_string(i % 1000) + "/goes";
            close(open(path.c_str(), O_CREAT | O_WRONLY, 0600));
            unlink(path.c_str());
        }
    });
    for (int run = 0; run < 3; ++run) {
        ExpectToday(1000, 0);
    }
    walking = false;
    churn.join();
    EXPECT_THAT(spy::LoggedTexts(), IsEmpty());
}

// A number that the kernel keeps of the process's memory, in KiB.
long MemoryField(const std::string& name) {
    const std::string status = ReadWhole("/proc/self/status");
    return std::atol(status.c_str() + status.find(name + ":") + name.size() + 1);
}

TEST_F(FileWalkTest, MemoryDoesNotGrowWithTheNumberOfFiles) {
    std::filesystem::create_directory(kShare);
    ASSERT_EQ(mount("many", kShare, "tmpfs", 0, ""), 0);
    MakeToday("/volume1/share/0");
    long growths[2] = {};  // of the memory in use, in KiB
    int made = 1;
    for (const int files : {1000, 50000}) {
        for (; made < files; ++made) {
            ASSERT_EQ(link("/volume1/share/0", ("/volume1/share/" + std::to_string(made)).c_str()), 0);
        }
        WriteWhole("/proc/self/clear_refs", "5");  // the peak is now what is in use
        const long before = MemoryField("VmHWM");
        ExpectToday(static_cast<uint64_t>(files), 0);
        growths[files > 1000] = MemoryField("VmHWM") - before;
    }
    EXPECT_LT(growths[1], growths[0] + 512);  // 11 bytes a file
    ASSERT_EQ(umount2(kShare, 0), 0);
}

}  // namespace
