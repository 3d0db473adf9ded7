#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "support/appliance.h"

namespace {

using namespace appliance;
using namespace std::string_literals;
using spy::Answer;
using spy::ToolRun;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kTool = "/usr/bin/flashcache_expand";
constexpr const char* kStarting = "Starting to expand cache (cachedev_0) ...";

class ExpandTest : public CacheTest {
  protected:
    void SetUp() override {
        CacheTest::SetUp();
        Begin();
    }
    static void Grow() { ASSERT_EQ(RunProgram({"vemo-appliance", "grow", kSpace, "3G"}), 0); }
    static uint64_t SizeOf(const char* device) {
        uint64_t size = 0;
        const int fd = open(device, O_RDONLY | O_CLOEXEC);
        ioctl(fd, BLKGETSIZE64, &size);
        close(fd);
        return size;
    }
    // The expansion tool gives this answer; what it was run with.
    static std::vector<std::string> ToolArguments(const Answer& answer, int expected) {
        std::vector<std::string> arguments;
        spy::state().answer = [&](const ToolRun& run) -> std::optional<Answer> {
            if (run.program != kTool) {
                return std::nullopt;
            }
            EXPECT_EQ(run.mode, "rE");
            arguments = run.arguments;
            return answer;
        };
        EXPECT_EQ(VEMOFlashCacheExpand(kSpace), expected);
        spy::state().answer = nullptr;
        return arguments;
    }
};

TEST_F(ExpandTest, TheCacheFollowsItsVolume) {
    WriteBlocks(kCache, 16);
    Forget();
    EXPECT_EQ(VEMOFlashCacheExpand(kSpace), 0);
    const std::string size = std::to_string(SizeOf(kSpace));
    EXPECT_THAT(spy::LoggedTexts(), ElementsAre("cache dev size(" + size + ") equals target size(" + size +
                                                "), no need to expand"));
    Grow();
    Forget();
    EXPECT_EQ(VEMOFlashCacheExpand(kSpace), 0);
    EXPECT_THAT(spy::LoggedTexts(),
                ElementsAre(kStarting,
                            "Expand Command: /usr/bin/flashcache_expand -p back cachedev_0 /dev/md3 "
                            "/dev/vg1/volume_1",
                            "Expand cache (cachedev_0) successfully!"));
    EXPECT_EQ(SizeOf(kCache), 3ULL << 30U);
    EXPECT_TRUE(HoldsBlocks(kCache, 16));
}

TEST_F(ExpandTest, CommandLines) {
    Grow();
    AddEntry("mine", kSsd, kSpace, FLASHCACHE_WRITE_BACK_BYPASS, FLASHCACHE_VERSION_ORIGINAL);
    EXPECT_THAT(ToolArguments({}, 0), ElementsAre("-p", "back", "cachedev_0", kSsd, kSpace));
    AddEntry("mine", kSsd, kSpace, FLASHCACHE_WRITE_AROUND, FLASHCACHE_VERSION_NEW);
    EXPECT_THAT(ToolArguments({}, 0), ElementsAre("-p", "around", "-n", "cachedev_0", kSsd, kSpace));
    const std::string command = kTool + " -p around -n cachedev_0 /dev/md3 /dev/vg1/volume_1"s;
    Forget();
    ToolArguments({0, "a\nb"}, -1);
    ToolArguments({0, "", false}, -1);
    EXPECT_THAT(spy::LoggedTexts(),
                ElementsAre(kStarting, "Expand Command: " + command, "a\n", "b",
                            "Expand cache failed. Command = " + command, kStarting,
                            "Expand Command: " + command, "Popen failed. Command=" + command));
    // The real tool knows that this is not the cache's mode.
    EXPECT_EQ(VEMOFlashCacheExpand(kSpace), -1);
    EXPECT_LT(SizeOf(kCache), SizeOf(kSpace));
}

TEST_F(ExpandTest, EntriesThatDoNotAllowIt) {
    AddEntry("mine", kSsd, kSpace, FLASHCACHE_WRITE_BACK, FLASHCACHE_VERSION_UNKNOWN);
    EXPECT_EQ(VEMOFlashCacheExpand(kSpace), 0);  // nothing to do, whatever the version
    Grow();
    Forget();
    EXPECT_EQ(VEMOFlashCacheExpand(kSpace), -1);
    AddEntry("mine", kSsd, kSpace, FLASHCACHE_WRITE_BACK_CRASH);
    spy::state().runs.clear();
    EXPECT_EQ(VEMOFlashCacheExpand(kSpace), -1);
    EXPECT_EQ(VEMOFlashCacheExpand(nullptr), -1);
    EXPECT_EQ(VEMOFlashCacheExpand("/dev/vg1/volume_2"), -1);
    const std::string copy = ReadWhole(kConfigCopy);
    WriteWhole(kConfigCopy, "[broken]\n");
    EXPECT_EQ(VEMOFlashCacheExpand(kSpace), -1);
    WriteWhole(kConfigCopy, copy);
    EXPECT_THAT(spy::state().runs, IsEmpty());
    EXPECT_THAT(spy::LoggedTexts(),
                testing::IsSupersetOf({"Incorrect cache version = -1",
                                       "Do not support volume expansion with crashed cache",
                                       "Incorrect paramter", "Can't find cache config for /dev/vg1/volume_2",
                                       "Failed to get SSD cache config (space path=/dev/vg1/volume_1)"}));
}

TEST_F(ExpandTest, DevicesThatAreNotThere) {
    ASSERT_EQ(unlink(kCache), 0);
    EXPECT_EQ(VEMOFlashCacheExpand(kSpace), -1);
    EXPECT_EQ(spy::LoggedTexts().back(), "Can't find cache path from /dev/vg1/volume_1");
    Touch(kCache);
    EXPECT_EQ(VEMOFlashCacheExpand(kSpace), -1);
    EXPECT_EQ(spy::LoggedTexts().back(), "Failed to get size for /dev/mapper/cachedev_0");
    ASSERT_EQ(unlink(kCache), 0);
    ASSERT_EQ(symlink("/nowhere", kCache), 0);
    EXPECT_EQ(VEMOFlashCacheExpand(kSpace), -1);
    EXPECT_EQ(spy::LoggedTexts().back(), "Failed to open /dev/mapper/cachedev_0");
}

}  // namespace
