#include <sys/stat.h>

#include "config_support.h"

namespace {

using spy::ToolRun;
using testing::ElementsAre;
using testing::StartsWith;

class ConfigUtilTest : public ConfigTest {};

TEST_F(ConfigUtilTest, ShortDeviceNames) {
    const std::pair<const char*, const char*> cases[] = {
        {"/dev/sdb", "sdb"}, {"/dev/mapper/cachedev_0", "cachedev_0"},
        {"/dev/", ""},       {"/dev/vg1/", ""},
        {"sdb", nullptr},    {"/devx/sdb", nullptr},
        {"/dev", nullptr},   {"", nullptr}};
    for (const auto& [path, name] : cases) {
        spy::state().log.clear();
        EXPECT_STREQ(VEMOFlashCacheGetShortDevName(path), name);
        EXPECT_EQ(spy::LoggedTexts(), name == nullptr
                                          ? std::vector{"Bad device path : [" + std::string(path) + "]"}
                                          : std::vector<std::string>());
    }
}

TEST_F(ConfigUtilTest, ProcEntriesThatCannotBeRead) {
    EXPECT_EQ(FlashCacheUtilProcRead(nullptr, "/dev/b", "x"), nullptr);
    EXPECT_EQ(FlashCacheUtilProcRead("/dev/a", nullptr, "x"), nullptr);
    EXPECT_EQ(FlashCacheUtilProcRead("/dev/a", "/dev/b", nullptr), nullptr);
    EXPECT_EQ(FlashCacheUtilProcRead("a", "b", "x"), nullptr);
    EXPECT_EQ(FlashCacheUtilProcRead("/dev/a", "b", "x"), nullptr);
    EXPECT_EQ(FlashCacheUtilProcRead("/dev/a", "/dev/vg1/b", "x"), nullptr);
    EXPECT_THAT(spy::LoggedTexts(),
                ElementsAre("Incorrect Parameter", "Incorrect Parameter", "Incorrect Parameter",
                            "Bad device path : [a]", "Failed to get ssd dev", "Bad device path : [b]",
                            "Failed to get space dev", "Failed to open /proc/flashcache/a+b/x to read"));
    spy::state().log.clear();
    EXPECT_EQ(FlashCacheUtilProcRead("/dev/a", "/dev/b", std::string(3000, 'x').c_str()), nullptr);
    EXPECT_EQ(spy::LoggedTexts().back(),
              "Failed to open /proc/flashcache/a+b/" + std::string(1023 - 21, 'x') + " to read");
}

TEST_F(ConfigUtilTest, CopiesAFileOverAnother) {
    WriteWhole("/tmp/from", "new");
    WriteWhole("/tmp/-to", "old and longer");
    EXPECT_EQ(VEMOFCCopyFile("/tmp/from", "/tmp/-to"), 0);
    EXPECT_EQ(ReadWhole("/tmp/-to"), "new");
    EXPECT_EQ(VEMOFCCopyFile("/tmp/none", "/tmp/-to"), -1);
    EXPECT_EQ(ReadWhole("/tmp/-to"), "new");
    EXPECT_EQ(VEMOFCCopyFile(nullptr, "/tmp/-to"), -1);
    EXPECT_EQ(VEMOFCCopyFile("/tmp/from", nullptr), -1);
    EXPECT_THAT(spy::state().runs, ElementsAre(ToolRun{"/bin/cp", "", {"-f", "/tmp/from", "/tmp/-to"}},
                                               ToolRun{"/bin/cp", "", {"-f", "/tmp/none", "/tmp/-to"}}));
    EXPECT_THAT(spy::LoggedTexts(), ElementsAre("Failed to copy /tmp/none to /tmp/-to", "Incorrect parameter",
                                                "Incorrect parameter"));
}

TEST_F(ConfigUtilTest, MakesOneFolder) {
    umask(0);
    EXPECT_EQ(VEMOFCCheckDirExistOrCreate("/tmp"), 0);
    EXPECT_EQ(VEMOFCCheckDirExistOrCreate("/tmp/d"), 0);
    struct stat status{};
    ASSERT_EQ(stat("/tmp/d", &status), 0);
    EXPECT_EQ(status.st_mode, S_IFDIR | 0755U);
    WriteWhole("/tmp/file", "");
    EXPECT_EQ(VEMOFCCheckDirExistOrCreate("/tmp/file"), -1);
    EXPECT_EQ(VEMOFCCheckDirExistOrCreate("/tmp/none/d"), -1);
    EXPECT_EQ(VEMOFCCheckDirExistOrCreate(nullptr), -1);
    EXPECT_THAT(spy::LoggedTexts(), ElementsAre("Failed to create /tmp/file: File exists",
                                                "Failed to create /tmp/none/d: No such file or directory",
                                                "Incorrect parameter"));
}

}  // namespace
