// Whether an SSD carries a cache's metadata, and of which version.
#include <fcntl.h>
#include <syslog.h>
#include <unistd.h>

#include <cstdlib>

#include "support/library_test.h"

namespace {

using spy::Answer;
using spy::ToolRun;
using testing::ElementsAre;
using testing::IsEmpty;

class ProbesTest : public LibraryTest {};

TEST_F(ProbesTest, TheLoadToolTellsOfMetadata) {
    const struct {
        Answer answer;
        int exists;
        std::vector<std::string> logged;
    } cases[] = {
        {{0, "looking\n/dev/md3: metadata existed!\nmore\n"},
         1,
         {"looking\n", "/dev/md3: metadata existed!\n"}},
        {{1, "metadata existed"}, 1, {"metadata existed"}},
        {{0, "no metadata\nMetadata existed\n"}, 0, {"no metadata\n", "Metadata existed\n"}},
        {{0, "metadata\nexisted\n"}, 0, {"metadata\n", "existed\n"}},
        {{0, ""}, 0, {}},
        {{0, "", false}, 0, {"Popen failed, cmd = /usr/bin/flashcache_load -c /dev/md3"}},
    };
    for (const auto& test : cases) {
        spy::state() = {};
        spy::state().answer = [&](const ToolRun&) { return test.answer; };
        EXPECT_EQ(VEMOFlashCacheCheckMetadataExist("/dev/md3"), test.exists) << test.answer.output;
        EXPECT_THAT(spy::state().runs,
                    ElementsAre(ToolRun{"/usr/bin/flashcache_load", "rE", {"-c", "/dev/md3"}}));
        EXPECT_EQ(spy::LoggedTexts(), test.logged);
    }
    spy::state() = {};
    EXPECT_EQ(VEMOFlashCacheCheckMetadataExist(nullptr), 0);
    EXPECT_THAT(spy::state().runs, IsEmpty());
    EXPECT_THAT(spy::LoggedTexts(), ElementsAre("Bad parameters"));
}

TEST_F(ProbesTest, OutputWithoutEndDoesNotKeepTheCaller) {
    ASSERT_EQ(std::system("vemo-appliance fault tool.flashcache_load flood:1000000x1"), 0);
    EXPECT_EQ(VEMOFlashCacheCheckMetadataExist("/dev/md3"), 0);
    EXPECT_LT(spy::state().log.size(), 5000U);
}

TEST_F(ProbesTest, TheSuperblockTellsTheVersion) {
    const std::string zeros(296, '\0');
    const struct {
        std::string content;
        int word;
        FLASHCACHE_VERSION version;
    } cases[] = {
        {zeros + std::string("\x0a\0\0\0", 4), 10, FLASHCACHE_VERSION_NEW},
        {zeros + std::string("\x02\0\0\0", 4), 2, FLASHCACHE_VERSION_ORIGINAL},
        {zeros + std::string("\0\0\0\x0a", 4), 0x0a000000, FLASHCACHE_VERSION_UNKNOWN},
        {zeros + "\xff\xff\xff\xff", -1, FLASHCACHE_VERSION_UNKNOWN},
        {zeros + std::string(4, '\0'), 0, FLASHCACHE_VERSION_UNKNOWN},
        {zeros + "\x0a", 10, FLASHCACHE_VERSION_NEW},  // what a short read leaves out counts as 0
        {zeros, 0, FLASHCACHE_VERSION_UNKNOWN},
        {"", 0, FLASHCACHE_VERSION_UNKNOWN},
    };
    for (const auto& test : cases) {
        spy::state() = {};
        WriteWhole("/dev/probed", test.content);
        EXPECT_EQ(VEMOFlashCacheVersionGet("/dev/probed"), test.version) << test.word;
        ASSERT_EQ(spy::state().log.size(), 1U);
        EXPECT_EQ(spy::state().log[0].priority, LOG_DEBUG);
        EXPECT_EQ(spy::state().log[0].text, "Read /dev/probed cache version=" + std::to_string(test.word) +
                                                " ret=" + std::to_string(test.version) + "\n");
        EXPECT_EQ(VLIBCErrGet(), 0);
    }
}

TEST_F(ProbesTest, WhatIsNoReadableDeviceHasNoVersion) {
    for (const char* path : {static_cast<const char*>(nullptr), "", "md3", "/dev", "dev/md3", " /dev/md3"}) {
        VLIBCErrSetEx(0, "", 0);
        EXPECT_EQ(VEMOFlashCacheVersionGet(path), FLASHCACHE_VERSION_UNKNOWN);
        EXPECT_EQ(VLIBCErrGet(), 0x0D00);
    }
    EXPECT_THAT(spy::state().log, IsEmpty());
    const std::pair<const char*, std::vector<std::string>> paths[] = {
        {"/dev/none", {"Can't open device [/dev/none], error=No such file or directory"}},
        {"/dev/mapper", {"Read superblock failed"}},
        {"/dev/md3/", {"Can't open device [/dev/md3/], error=Not a directory"}},
    };
    for (const auto& [path, logged] : paths) {
        spy::state().log.clear();
        VLIBCErrSetEx(0, "", 0);
        EXPECT_EQ(VEMOFlashCacheVersionGet(path), FLASHCACHE_VERSION_UNKNOWN);
        EXPECT_EQ(spy::LoggedTexts(), logged);
        EXPECT_EQ(VLIBCErrGet(), 0);
    }
}

TEST_F(ProbesTest, AgreeWithTheToolsThatMakeAndWipeCaches) {
    ASSERT_EQ(CheckAndInsertKernelModule(), 0);
    for (const FLASHCACHE_VERSION version : {FLASHCACHE_VERSION_ORIGINAL, FLASHCACHE_VERSION_NEW}) {
        EXPECT_EQ(VEMOFlashCacheCheckMetadataExist("/dev/md3"), 0);
        EXPECT_EQ(VEMOFlashCacheVersionGet("/dev/md3"), FLASHCACHE_VERSION_UNKNOWN);
        const std::string make =
            std::string("flashcache_create ") + (version == FLASHCACHE_VERSION_NEW ? "-n " : "");
        ASSERT_EQ(std::system((make + "-p thru cachedev_0 /dev/md3 /dev/vg1/volume_1").c_str()), 0);
        ASSERT_EQ(std::system("dmsetup remove cachedev_0"), 0);
        EXPECT_EQ(VEMOFlashCacheCheckMetadataExist("/dev/md3"), 1);
        EXPECT_EQ(VEMOFlashCacheVersionGet("/dev/md3"), version);
        EXPECT_EQ(VEMOFlashCacheDestroy("/dev/md3"), 0);
    }
}

}  // namespace
