#include <fcntl.h>
#include <unistd.h>

#include "support/appliance.h"

namespace {

using namespace appliance;
using spy::Answer;
using spy::ToolRun;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;

using LoadTest = CacheTest;

TEST_F(LoadTest, ACacheComesBackWithItsDirtyBlocks) {
    Begin();
    WriteBlocks(kCache, 16);
    ASSERT_EQ(VEMOFlashCacheUnload(kCache), 0);
    EXPECT_FALSE(HoldsBlocks(kSpace, 16));
    Forget();
    char path[64] = "";
    ASSERT_EQ(VEMOFlashCacheLoad(kSsd, kSpace, path, sizeof path), 0);
    EXPECT_STREQ(path, kCache);
    EXPECT_EQ(DirtyBlocks(), 16);
    EXPECT_TRUE(HoldsBlocks(kCache, 16));
    EXPECT_THAT(spy::state().runs,
                Contains(ToolRun{"/usr/bin/flashcache_load", "", {kSsd, "cachedev_0", kSpace}}));
    EXPECT_THAT(KnobWrites(), ElementsAre("reclaim_policy=1", "fast_remove=1", "skip_seq_thresh_kb=0"));
    EXPECT_THAT(spy::LoggedTexts(),
                ElementsAre("Load Cache: /usr/bin/flashcache_load /dev/md3 cachedev_0 /dev/vg1/volume_1"));
}

TEST_F(LoadTest, WithoutAnEntryNoToolRuns) {
    EXPECT_EQ(VEMOFlashCacheLoad(nullptr, kSpace, nullptr, 0), -1);
    EXPECT_EQ(VEMOFlashCacheLoad(kSsd, nullptr, nullptr, 0), -1);
    EXPECT_THAT(spy::state().runs, IsEmpty());
    EXPECT_EQ(VEMOFlashCacheLoad("/dev/md4", kSpace, nullptr, 0), -1);
    EXPECT_EQ(spy::state().runs.size(), 6U);  // the modules alone
    EXPECT_EQ(VEMOFlashCacheIsKModuleLoad("flashcache_vemo"), 1);
    EXPECT_THAT(spy::LoggedTexts(),
                ElementsAre("Bad parameters", "Bad parameters",
                            MatchesRegex("Fail to get SSD config by cache device path \\[/dev/md4\\]. "
                                         "\\[0x[0-9A-F]{4} .*:[0-9]+\\]")));
}

TEST_F(LoadTest, FailuresOfToolsAndBuffers) {
    char path[64] = "untouched";
    for (const int status : {1, 255, -1}) {
        spy::state().answer = [status](const ToolRun& run) {
            return Answer{run.program == "/usr/bin/flashcache_load" ? status : 0, ""};
        };
        EXPECT_EQ(VEMOFlashCacheLoad(kSsd, kSpace, path, sizeof path), -1);
        EXPECT_THAT(spy::LoggedTexts().back(),
                    MatchesRegex("Load cache failed \\(cache path=/dev/md3 cache name=cachedev_0 disk "
                                 "path=/dev/vg1/volume_1\\) errno=.*, ret=-1"));
    }
    FailKnobWrite(0);
    SetFault("tool.flashcache_load", "crash");
    EXPECT_EQ(VEMOFlashCacheLoad(kSsd, kSpace, path, sizeof path), -1);
    EXPECT_THAT(KnobWrites(), IsEmpty());
    spy::state().answer = [](const ToolRun& run) {
        return Answer{run.program == "/sbin/sysctl" ? 1 : 0, ""};
    };
    EXPECT_EQ(VEMOFlashCacheLoad(kSsd, kSpace, path, sizeof path), -1);
    EXPECT_THAT(spy::LoggedTexts().back(),
                MatchesRegex("Fail to set cache sysctl. \\[0x8100 flashcache_sysctl_set.cpp:[0-9]+\\]"));
    spy::state().answer = [](const ToolRun&) { return Answer{}; };
    EXPECT_EQ(VEMOFlashCacheLoad(kSsd, kSpace, path, 22), -1);
    EXPECT_EQ(spy::LoggedTexts().back(), "size of buffer is not enough (22 < 22) ");
    EXPECT_STREQ(path, "untouched");
    EXPECT_EQ(VEMOFlashCacheLoad(kSsd, kSpace, nullptr, 22), 0);
    EXPECT_EQ(VEMOFlashCacheLoad(kSsd, kSpace, path, 0), 0);
}

TEST_F(LoadTest, NoFreeName) {
    for (int number = 0; number < 1000; ++number) {
        Touch("/dev/mapper/cachedev_" + std::to_string(number));
    }
    EXPECT_EQ(VEMOFlashCacheLoad(kSsd, kSpace, nullptr, 0), -1);
    EXPECT_THAT(spy::LoggedTexts(),
                ElementsAre("NOT FOUND new cachedev, counts: 1000", "Fail to get new cache name"));
}

class UnloadTest : public LibraryTest {
  protected:
    // dmsetup says this; other programs say what a test adds.
    static void Answers(const std::map<std::string, Answer>& answers) {
        spy::state() = {};
        spy::state().answer = [answers](const ToolRun& run) { return answers.at(run.program); };
    }
};

constexpr const char* kRemoving = "Unload Cache: /sbin/dmsetup remove --retry cachedev_3";
constexpr const char* kDevice = "/dev/mapper/cachedev_3";
const Answer kBusy{1, "device-mapper: remove ioctl on cachedev_3 failed: busy\nCommand failed.\n"};

TEST_F(UnloadTest, OnlyTheWordsCommandFailedMakeItFail) {
    EXPECT_EQ(VEMOFlashCacheUnload(nullptr), -1);
    EXPECT_EQ(VEMOFlashCacheUnload("/dev/mapper/vg1-lv"), -1);
    EXPECT_EQ(VLIBCErrGet(), 0x0D00);
    EXPECT_THAT(spy::LoggedTexts(), IsEmpty());
    Answers({{"/sbin/dmsetup", {1, "Device busy, retrying\nfailed Command"}}});
    EXPECT_EQ(VEMOFlashCacheUnload(kDevice), 0);
    EXPECT_THAT(spy::state().runs,
                ElementsAre(ToolRun{"/sbin/dmsetup", "rE", {"remove", "--retry", "cachedev_3"}}));
    EXPECT_THAT(spy::LoggedTexts(), ElementsAre(kRemoving, "Device busy, retrying\n", "failed Command",
                                                "Success to unload [cachedev_3]"));
    Answers({{"/sbin/dmsetup", {0, "", false}}});
    EXPECT_EQ(VEMOFlashCacheUnload(kDevice), -1);
    EXPECT_THAT(spy::LoggedTexts(), ElementsAre(kRemoving, "Popen failed"));
}

TEST_F(UnloadTest, ABusyDeviceIsReportedWithItsHolders) {
    Answers(
        {{"/sbin/dmsetup", kBusy}, {"/bin/cat", {0, "mount a\nmount b\n"}}, {"/bin/lsof", {0, "holder\n"}}});
    EXPECT_EQ(VEMOFlashCacheUnload(kDevice), -1);
    EXPECT_EQ(spy::state().runs.at(1), (ToolRun{"/bin/cat", "r", {"/proc/mounts"}}));
    EXPECT_EQ(spy::state().runs.at(2), (ToolRun{"/bin/lsof", "r", {kDevice}}));
    EXPECT_THAT(spy::LoggedTexts(),
                ElementsAre(kRemoving, "device-mapper: remove ioctl on cachedev_3 failed: busy\n",
                            "Command failed.\n", "Failed to unlod [cachedev_3]",
                            "==== /proc/mount start ==== ", "mount a\n", "mount b\n",
                            "==== /proc/mount end ==== ", "==== lsof [/dev/mapper/cachedev_3] start ==== ",
                            "holder\n", "==== lsof [/dev/mapper/cachedev_3] end ==== "));
}

TEST_F(UnloadTest, TheReportStopsWhereItCannotGoOn) {
    const Answer none{0, "", false};
    Answers({{"/sbin/dmsetup", kBusy}, {"/bin/cat", none}});
    EXPECT_EQ(VEMOFlashCacheUnload(kDevice), -1);
    EXPECT_THAT(spy::LoggedTexts(), Contains("Reading /proc/mounts failed"));
    EXPECT_EQ(spy::LoggedTexts().back(), "Failed to print debug message");
    Answers({{"/sbin/dmsetup", kBusy}, {"/bin/cat", {}}, {"/bin/lsof", none}});
    EXPECT_EQ(VEMOFlashCacheUnload(kDevice), -1);
    EXPECT_THAT(spy::LoggedTexts(), Contains("Reading the result of lsof failed"));
    EXPECT_EQ(spy::LoggedTexts().back(), "Failed to print debug message");
    ASSERT_EQ(unlink("/bin/lsof"), 0);
    EXPECT_EQ(VEMOFlashCacheUnload(kDevice), -1);
    EXPECT_EQ(spy::LoggedTexts().back(), "No lsof in your system, need to put it to /bin/lsof for debugging");
}

using LiveUnloadTest = CacheTest;

TEST_F(LiveUnloadTest, ACacheThatIsHeldStaysUp) {
    Begin();
    const int holder = open(kCache, O_RDONLY | O_CLOEXEC);
    EXPECT_EQ(VEMOFlashCacheUnload(kCache), -1);
    EXPECT_THAT(spy::LoggedTexts(), Contains(HasSubstr(std::to_string(getpid()))));  // who holds it
    close(holder);
    SetFault("tool.dmsetup", "flood:100x1");
    EXPECT_EQ(VEMOFlashCacheUnload(kCache), 0);
    EXPECT_EQ(access(kCache, F_OK), 0);  // said nothing of a failure, and did nothing
    EXPECT_EQ(VEMOFlashCacheUnload(kCache), 0);
    EXPECT_NE(access(kCache, F_OK), 0);
}

}  // namespace
