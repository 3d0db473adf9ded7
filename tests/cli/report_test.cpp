// What the tool tells beside the caches' lives: costs, SSDs, records, pinned files, file ages.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "cli/tool.h"

namespace tests {
namespace {

using ::testing::HasSubstr;

// The usual cache, its volume mounted with two files in one share.
void CreateMountedCache() {
    CreateCache();
    for (const Words& words : std::vector<Words>{{"mkfs.ext4", "-q", "/dev/mapper/cachedev_0"},
                                                 {"mount", "/dev/mapper/cachedev_0", "/volume1"},
                                                 {"mkdir", "/volume1/share"},
                                                 {"cp", "/etc/passwd", "/etc/group", "/volume1/share"},
                                                 {"sync"}}) {
        ASSERT_EQ(RunProgram(words).code, 0) << words.front();
    }
}

TEST(Report, SizeAndMemoryOfACache) {
    EXPECT_EQ(Answer({"size"})["size"]["size_bytes"], 0);
    CreateCache();
    EXPECT_EQ(Answer({"size", "cachedev_0"})["size"]["size_bytes"], 64 << 20);
    EXPECT_EQ(Answer({"size"})["size"]["size_bytes"], 64 << 20);
    const Json memory = Answer({"memory"});
    EXPECT_EQ(memory["caches"][0]["metadata_bytes"], 1024 * 26);
    EXPECT_EQ(memory["caches"][0]["fixed_bytes"], 416 * 1024);
    EXPECT_GE(memory["total"]["needed_bytes"].Number(), 67493888 + 1024 * 26);
    EXPECT_EQ(Answer({"unload", "cachedev_0"})["unloaded"]["name"], "md3+volume_1");
    EXPECT_TRUE(Answer({"memory"})["caches"][0]["metadata_bytes"].IsNull());
}

TEST(Report, ProbeOfAnSsd) {
    EXPECT_EQ(Answer({"probe", "/dev/md3"}, kNo)["probe"]["has_metadata"], false);
    EXPECT_TRUE(Answer({"probe", "/dev/md3"}, kNo)["probe"]["format"].IsNull());
    ASSERT_EQ(Tool({"create", "/dev/md3", "/dev/vg1/volume_1", "--size", "64M", "--format", "original"}).code,
              0);
    EXPECT_EQ(Answer({"probe", "/dev/md3"})["probe"]["format"], "original");
    EXPECT_EQ(Tool({"probe", "/tmp"}).code, 1);
}

TEST(Report, SupportOfSsds) {
    EXPECT_EQ(Answer({"ssd", "check", "QM-S400", "480G"})["ssd"]["supported"], true);
    EXPECT_EQ(Answer({"ssd", "check", "QM-S400", "600G"}, kNo)["ssd"]["supported"], false);
    EXPECT_EQ(Answer({"ssd", "list"})["ssds"].size(), 30U);
    EXPECT_EQ(Tool({"ssd", "check", "QM-S400", "0"}).code, 2);
    ASSERT_EQ(RunProgram({"rm", "/etc.defaults/support_ssd.db"}).code, 0);
    EXPECT_EQ(Answer({"ssd", "list"})["ssds"].size(), 0U);
}

TEST(Report, SerialNumbersNeedConsentToGo) {
    EXPECT_EQ(Tool({"serials", "check", "c1", "S1"}).code, 1) << "an unknown list knows no serial number";
    EXPECT_EQ(Answer({"serials", "set", "c1", "S1", "S2"})["stored"]["count"], 2);
    EXPECT_EQ(Answer({"serials", "get", "c1"})["serials"][1]["serial"], "S2");
    EXPECT_EQ(Answer({"serials", "check", "c1", "S2"})["check"]["all_known"], true);
    EXPECT_EQ(Answer({"serials", "check", "c1", "S2", "S3"}, kNo)["check"]["all_known"], false);
    EXPECT_EQ(Tool({"serials", "remove", "c1"}).code, 1);
    EXPECT_EQ(Answer({"serials", "get", "c1"})["serials"].size(), 2U);
    EXPECT_EQ(Tool({"serials", "remove", "c1", "--discard-list"}).code, 0);
    EXPECT_EQ(Answer({"serials", "get", "c1"})["serials"].size(), 0U);
}

TEST(Report, RecordOfPowerManagementFlushes) {
    EXPECT_EQ(Answer({"apm", "set", "k"})["apm_flush"]["done"], true);
    EXPECT_EQ(Answer({"apm", "get", "k"})["apm_flush"]["done"], true);
    EXPECT_EQ(Answer({"apm", "clear", "k"})["apm_flush"]["done"], false);
    EXPECT_EQ(Answer({"apm", "get", "k"}, kNo)["apm_flush"]["done"], false);
    EXPECT_EQ(Tool({"apm", "set", "a=b"}).code, 2);
}

TEST(Report, MissingCacheIsAnnounced) {
    CreateCache();
    EXPECT_EQ(Answer({"notify", "cachedev_0"})["notification"]["announced"], false);
    ASSERT_EQ(
        RunProgram({"sed", "-i", "s/CacheMissing = 0/CacheMissing = 1/", "/usr/vemo/etc/flashcache.conf"})
            .code,
        0);
    const auto notification = Answer({"notify", "cachedev_0"})["notification"];
    EXPECT_EQ(notification["announced"], true);
    EXPECT_EQ(notification["ssd_missing"], true);
    EXPECT_THAT(RunProgram({"cat", "/var/log/messages"}).out, HasSubstr("SSDCacheMissing"));
}

TEST(Report, MissingSsdIsToldTheSameByEveryVerb) {
    CreateCache();
    ASSERT_EQ(Tool({"unload", "cachedev_0"}).code, 0);
    ASSERT_EQ(RunProgram({"rm", "/dev/md3"}).code, 0);
    EXPECT_EQ(Answer({"list"})["caches"][0]["problem"], "its SSD is missing");
    EXPECT_EQ(Answer({"config", "show", "md3+volume_1"})["entry"]["ssd_missing"], true);
    const auto notification = Answer({"notify", "md3+volume_1"})["notification"];
    EXPECT_EQ(notification["ssd_missing"], true);
    EXPECT_EQ(notification["announced"], false);
    EXPECT_THAT(Tool({"notify", "md3+volume_1"}).out, HasSubstr("does not mark"));
    EXPECT_EQ(Answer({"config", "remove", "md3+volume_1", "--forget-cache"})["removed"]["ssd_missing"], true);
}

TEST(Report, PlainFileAmongTheCacheDevicesIsNamedAsThat) {
    std::ofstream("/dev/mapper/cachedev_7") << "plain";
    for (const char* name : {"cachedev_7", "/dev/mapper/cachedev_7"}) {
        const auto error = Answer({"status", name}, 1)["error"];
        EXPECT_EQ(error["reason"], "/dev/mapper/cachedev_7 is no block device");
    }
    const auto error = Answer(
        {"create", "/dev/md3", "/dev/vg1/volume_1", "--size", "64M", "--device", "/dev/mapper/cachedev_7"},
        1)["error"];
    EXPECT_EQ(error["kind"], "in_use");
    EXPECT_EQ(error["reason"], "/dev/mapper/cachedev_7 is no block device");
    EXPECT_EQ(Answer({"probe", "/dev/md3"}, kNo)["probe"]["has_metadata"], false) << "nothing was touched";
}

TEST(Report, PinnedFiles) {
    CreateMountedCache();
    EXPECT_EQ(Answer({"pin", "list-support"})["volumes"][0]["supported"], true);
    EXPECT_EQ(Answer({"pin", "add", "/volume1", "/volume1/share/passwd"})["files"][0]["pinned"], true);
    EXPECT_EQ(Answer({"pin", "check", "/volume1/share/passwd"})["file"]["pinned"], true);
    EXPECT_EQ(Answer({"pin", "check", "/volume1/share/group"}, kNo)["file"]["pinned"], false);
    EXPECT_GT(Answer({"pin", "bitmap", "/volume1", "--send"})["bitmap"]["bitmap_bytes"].Number(), 0);
    EXPECT_EQ(Answer({"pin", "remove", "/volume1", "/volume1/share/passwd"})["files"][0]["pinned"], false);
    EXPECT_EQ(Answer({"pin", "check", "/volume1/share/passwd"}, kNo)["file"]["pinned"], false);
}

TEST(Report, OfEachPinnedFile) {
    CreateMountedCache();
    const std::string long1024 = "/volume1/" + std::string(1015, 'x');
    const struct {
        const char* verb;
        std::string file;
        const char* result;
        const char* problem;
    } cases[] = {{"add", "/volume1/share/passwd", "pinned", nullptr},
                 {"add", "/volume1/share/../share/passwd", "already_pinned", nullptr},
                 {"add", "/etc/passwd", "failed", "no file of the volume mounted at /volume1"},
                 {"add", "/volume1/share/none", "failed", "No such file"},
                 {"add", "/volume1/share", "failed", "no regular file"},
                 {"add", "/volume1/a\nb", "failed", "line end"},
                 {"add", long1024, "failed", "longer than 1023"},
                 {"add", "/volume1/share/group", "pinned", nullptr},
                 {"remove", "/volume1/share/none", "failed", "Unpin files (/volume1/share/none)"},
                 {"remove", "/volume1/share/group", "unpinned", nullptr},
                 {"remove", "/volume1/share/group", "not_pinned", nullptr}};
    for (const std::string verb : {"add", "remove"}) {
        Words words = {"pin", verb, "/volume1", "--json"};
        for (const auto& one : cases) {
            if (one.verb == verb) {
                words.push_back(one.file);
            }
        }
        const Ran ran = Tool(words);
        EXPECT_EQ(ran.code, 1);
        const auto rows = ran.Json()["files"];
        auto row = rows.begin();
        for (const auto& one : cases) {
            if (one.verb != verb) {
                continue;
            }
            ASSERT_NE(row, rows.end());
            EXPECT_EQ((*row)["result"], one.result) << *row;
            EXPECT_EQ((*row)["problem"].IsNull(), one.problem == nullptr) << *row;
            if (one.problem != nullptr) {
                EXPECT_THAT((*row)["problem"], HasSubstr(one.problem));
            }
            ++row;
        }
    }
    EXPECT_EQ(Answer({"pin", "check", "/volume1/share/passwd"})["file"]["pinned"], true);
    const Ran table = Tool({"pin", "remove", "/volume1", "/volume1/share/passwd", "/etc/passwd"});
    EXPECT_EQ(table.code, 1);
    EXPECT_THAT(table.out, HasSubstr("RESULT"));
    EXPECT_THAT(table.out, HasSubstr("unpinned"));
    EXPECT_THAT(table.out, HasSubstr("no file of the volume"));
    // A tool that fails says nothing of a volume.
    Fault("tool.vemocachepinfiletool", "fail");
    EXPECT_TRUE(Answer({"pin", "list-support"})["volumes"][0]["supported"].IsNull());
}

TEST(Report, FileAges) {
    CreateMountedCache();
    EXPECT_EQ(Answer({"filestat", "show"})["ages"].size(), 0U);
    const Json ages = Answer({"filestat", "run", "/volume1"})["ages"];
    ASSERT_EQ(ages.size(), 11U) << "seven days and four levels";
    double files = 0;
    for (std::size_t day = 0; day < 7; ++day) {
        files += ages[day]["files"].Number();
    }
    EXPECT_EQ(files, 2);
    EXPECT_EQ(Answer({"filestat", "show"})["ages"], ages);
    const Ran shown = Tool({"filestat", "show"});
    EXPECT_THAT(shown.out, HasSubstr("####"));
    EXPECT_THAT(shown.err, HasSubstr("files outside the shares are not counted"));
    EXPECT_THAT(Answer({"filestat", "show"})["remark"], HasSubstr("outside the shares"));
    EXPECT_THAT(Tool({"help", "filestat", "run"}).out, HasSubstr("files outside them are not counted"));
    EXPECT_EQ(Answer({"filestat", "status"})["filestat"]["running"], false);
}

TEST(Report, MarkerOfADeadRunIsNamed) {
    ASSERT_EQ(RunProgram({"touch", "/tmp/flashcache_file_statistics_processing"}).code, 0);
    EXPECT_EQ(Answer({"filestat", "status"})["filestat"]["stale_marker"], true);
    const Ran ran = Tool({"filestat", "run", "/volume1"});
    EXPECT_EQ(ran.code, 1);
    EXPECT_THAT(ran.err, HasSubstr("vemocachectl filestat clear; vemocachectl filestat run /volume1"));
}

}  // namespace
}  // namespace tests
