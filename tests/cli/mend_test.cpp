// The verbs that mend what doctor finds, where they must refuse.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "cli/tool.h"

namespace tests {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

constexpr const char* kConfig = "/usr/vemo/etc/flashcache.conf";

Json Entry() {
    return Answer({"config", "show", "md3+volume_1"})["entry"];
}

void EditConfig(const std::string& script) {
    ASSERT_EQ(RunProgram({"sed", "-i", script, kConfig}).code, 0);
}

TEST(ConfigCorrect, MakesTheEntryTellWhatTheSsdDoes) {
    CreateDirtyCache();
    EXPECT_THAT(Tool({"config", "correct", "cachedev_0"}).out, HasSubstr("is right as it is"));
    EditConfig(
        "s/WriteMode.*/WriteMode=thru/; s/CacheSizeByte.*/CacheSizeByte=1/; "
        "s/CacheVersion.*/CacheVersion=0/");
    EditConfig("s/CacheMissing.*/CacheMissing=1/; s/SpaceMissing.*/SpaceMissing=1/");
    ASSERT_EQ(Tool({"unload", "cachedev_0"}).code, 0);
    const Ran ran = Tool({"config", "correct", "md3+volume_1"});
    EXPECT_EQ(ran.code, 0) << ran.err;
    EXPECT_THAT(ran.out,
                HasSubstr("the mode to back, the size to 64.0 MiB, the format to new, the SSD is there, "
                          "the volume is there."));
    EXPECT_EQ(Entry()["write_mode"], "back");
    EXPECT_EQ(Entry()["size_bytes"], 64 << 20);
    EXPECT_EQ(Entry()["ssd_missing"], false);
}

TEST(ConfigCorrect, KeepsTheKindsOfWriteBackAndRefusesAnotherVolumesSsd) {
    CreateCache();
    EditConfig("s/WriteMode.*/WriteMode=back_bypass/");
    EXPECT_EQ(Answer({"config", "correct", "cachedev_0"})["entry"]["write_mode"], "back_bypass");
    ASSERT_EQ(Tool({"unload", "cachedev_0"}).code, 0);
    EditConfig("s,/dev/vg1/volume_1,/dev/vg1/volume_2,; s/WriteMode.*/WriteMode=thru/");
    EXPECT_EQ(Tool({"config", "correct", "/dev/md3", "--json"}).Json()["error"]["kind"], "refused");
    EXPECT_EQ(Entry()["write_mode"], "thru");
}

TEST(ConfigCorrect, WaitsForNoFlush) {
    CreateDirtyCache();
    RunningTool flush({"flush", "cachedev_0", "--json"});
    while (Answer({"flush", "--status", "cachedev_0"})["flush"]["flush_state"] != "flushing") {
    }
    EXPECT_EQ(Tool({"config", "correct", "cachedev_0", "--json"}).Json()["error"]["kind"], "in_use");
    EXPECT_EQ(Entry()["flush_state"], "flushing");
}

TEST(ConfigRefresh, MakesNoCopyOfADamagedFile) {
    CreateCache();
    EditConfig("2s/.*/rubbish/");
    EXPECT_EQ(Tool({"config", "refresh", "--json"}).Json()["error"]["kind"], "configuration");
    std::ifstream copy("/tmp/flashcache.conf");
    EXPECT_THAT(std::string(std::istreambuf_iterator<char>(copy), {}), Not(HasSubstr("rubbish")));
}

TEST(FilestatClear, TakesAwayTheMarkerOfADeadRun) {
    EXPECT_EQ(Answer({"filestat", "clear"})["filestat"]["cleared"], false);
    std::ofstream("/tmp/flashcache_file_statistics_processing") << "pid=\"1\"\ncmd=\"gone\"\n";
    EXPECT_EQ(Answer({"filestat", "clear"})["filestat"]["cleared"], true);
    EXPECT_EQ(Answer({"filestat", "status"})["filestat"]["stale_marker"], false);
}

TEST(PinBitmap, OfAVolumeThatIsGoneCanBeDeletedAlone) {
    const std::string list = "/usr/vemo/etc/flashcache_pin_file.conf";
    std::ofstream(list) << "[/volume9]\n/volume9/file\n";
    EXPECT_EQ(Tool({"pin", "bitmap", "/volume9"}).code, kUsage);
    EXPECT_EQ(Answer({"pin", "bitmap", "/volume9", "--delete"})["bitmap"]["deleted"], true);
    std::ifstream pins(list);
    EXPECT_THAT(std::string(std::istreambuf_iterator<char>(pins), {}), Not(HasSubstr("volume9")));
}

}  // namespace
}  // namespace tests
