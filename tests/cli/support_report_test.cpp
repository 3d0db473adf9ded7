// Reports of a simulated appliance whose devices' names begin with one another.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <csignal>
#include <filesystem>
#include <fstream>

#include "cli/tool.h"

namespace tests {
namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
namespace fs = std::filesystem;

constexpr const char* kFolder = "/root/reports";
const std::string kArchive = std::string(kFolder) + "/report.tar.gz";

std::string Text(const std::string& path) {
    return RunProgram({"cat", path}).out;
}

// The folder that the archive holds.
std::string Unpack(const std::string& into) {
    fs::create_directories(into);
    EXPECT_EQ(RunProgram({"tar", "xzf", kArchive, "-C", into}).code, 0);
    return into + "/vemocachectl-report";
}

std::vector<std::string> Left() {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(kFolder)) {
        names.push_back(entry.path().filename());
    }
    return names;
}

void CreateTwoCaches() {
    fs::create_directories(kFolder);
    Answer({"create", "/dev/md3", "/dev/vg1/volume_1", "--size", "16M"});
    Answer({"create", "/dev/md30", "/dev/vg1/volume_10", "--size", "16M", "--mode", "around"});
    Answer({"serials", "set", "c", "SN0815", "SN08150"});
    std::ofstream("/usr/vemo/etc/flashcache_pin_file.conf") << "[/volume9]\n/volume9/payroll.ods\n";
    std::ofstream("/tmp/flashcache.conf", std::ios::app) << "# foreign\n";
    // Of a cache that is gone.
    std::ofstream("/var/log/messages", std::ios::app)
        << "Jan  1 00:00:00 <5> kernel: flashcache: /dev/vg7/payroll-7 is lost: md77p1, /dev/md77p1.\n"
        << "Jan  1 00:00:00 <5> a[1]: dev.flashcache_md78+payroll-8.do_sync = 1; /volume7/secret (md78)\n";
}

// The summaries name devices; the codes are the same whatever those are called.
Words CodesOf(const Json& findings) {
    Words codes;
    for (const Json& finding : findings) {
        codes.push_back(std::string(finding["code"]) + std::string(finding["count"]));
    }
    return codes;
}

TEST(SupportReport, HoldsAllAndGivesNoNamesAway) {
    CreateTwoCaches();
    const Json answer = Answer({"report", "--seconds", "0.5", kArchive})["report"];
    EXPECT_EQ(answer["caches"], 2);
    EXPECT_EQ(answer["warning"], 2);
    struct stat status{};
    ASSERT_EQ(stat(kArchive.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode, mode_t{S_IFREG | 0600});
    const std::string folder = Unpack("/root/unpacked");
    const Json report = Json::Parse(Text(folder + "/report.json"));
    EXPECT_EQ(report["format_version"], 1);
    EXPECT_EQ(CodesOf(report["findings"]), CodesOf(Answer({"doctor"}, 1)["findings"]));
    EXPECT_EQ(report["caches"][0]["name"], "ssd-1+volume-1");
    EXPECT_EQ(report["caches"][1]["name"], "ssd-2+volume-2");
    EXPECT_EQ(report["caches"][1]["kernel"]["write_mode"], "around");
    EXPECT_EQ(report["caches"][0]["ssd"]["superblock"]["volume"], "/dev/group-1/volume-1");
    EXPECT_GE(report["samples"].size(), 2U);
    EXPECT_EQ(report["samples"][1]["caches"][0]["dirty_bytes"], 0);
    EXPECT_GT(report["log"].size(), 0U);
    EXPECT_THAT(Text(folder + "/commands/dmsetup-table-cachedev_0.txt"),
                HasSubstr("ssd dev (/dev/ssd-1), disk dev (/dev/group-1/volume-1)"));
    EXPECT_THAT(Text(folder + "/files/proc/sys/dev/flashcache_ssd-2+volume-2/cache_all"), "1\n");
    EXPECT_THAT(Text(folder + "/files/usr/vemo/etc/flashcache_pin_file.conf"),
                ::testing::StartsWith("[/mount-3]\n/mount-3/file-"));
    const std::string log = Text(folder + "/log.txt");
    EXPECT_THAT(log, HasSubstr("/dev/ssd-2"));
    EXPECT_THAT(log, HasSubstr("flashcache: /dev/group-2/disk-1 is lost: disk-2, /dev/disk-2."));
    EXPECT_THAT(log, HasSubstr("dev.flashcache_ssd-3+volume-3.do_sync = 1; /mount-4/file-"));
    const std::string secrets = "md3|md7|vg1|vg7|volume_1|volume9|volume7|payroll|secret|SN0815";
    EXPECT_THAT(RunProgram({"grep", "-rEo", secrets, folder}).out, IsEmpty());
    EXPECT_THAT(RunProgram({"find", folder, "-regextype", "egrep", "-regex", ".*(md3|vg1|volume_1).*"}).out,
                IsEmpty());
    EXPECT_THAT(Text(folder + "/index.html"), Not(HasSubstr("http:")));

    Answer({"report", "--seconds", "0.1", "--plain", "--force", kArchive});
    const Json plain = Json::Parse(Text(Unpack("/root/plain") + "/report.json"));
    EXPECT_EQ(plain["caches"][1]["name"], "md30+volume_10");
    EXPECT_EQ(plain["names_replaced"], false);
    EXPECT_THAT(Left(), ::testing::ElementsAre("report.tar.gz"));
}

TEST(SupportReport, IsNotWrittenByHalves) {
    CreateTwoCaches();
    EXPECT_EQ(Answer({"report", "/root/none/report.tar.gz"}, 1)["error"]["kind"], "failed");
    EXPECT_EQ(Answer({"report", "--seconds", "no", kArchive}, kUsage)["error"]["kind"], "usage");
    const Ran interrupted = OnTerminal({VEMOCACHECTL_PATH, "report", "--seconds", "60", kArchive},
                                       {{"statistics", [](pid_t) { return std::string("\x03"); }}}, 80, 24);
    EXPECT_EQ(interrupted.code, 128 + SIGINT);
    EXPECT_THAT(interrupted.out, HasSubstr("reading: statistics"));
    EXPECT_THAT(Left(), IsEmpty());
    std::ofstream(kArchive) << "mine";
    EXPECT_EQ(Answer({"report", kArchive}, 1)["error"]["kind"], "refused");
    EXPECT_EQ(Text(kArchive), "mine");
}

// What cannot be read is told, and keeps nothing else from being read.
TEST(SupportReport, TellsWhatCouldNotBeRead) {
    CreateTwoCaches();
    std::ofstream("/usr/vemo/etc/flashcache.conf") << "rubbish\n";
    Fault("tool.dmsetup", "fail");
    Fault("file.flashcache_stats", "rubbish");
    const Json answer = Answer({"report", "--seconds", "0.1", kArchive})["report"];
    EXPECT_EQ(answer["critical"], 1);
    EXPECT_GE(answer["unread_items"].Number(), 2);
    const Json report = Json::Parse(Text(Unpack("/root/unpacked") + "/report.json"));
    Words failed;
    for (const Json& item : report["items"]) {
        if (!item["error"].IsNull() && item["exists"] == true) {
            failed.emplace_back(item["name"]);
        }
    }
    EXPECT_THAT(failed, ::testing::Contains("dmsetup table cachedev_0"));
}

// A tool that hangs is what a support case may be about.
TEST(SupportReport, DoesNotWaitForWhatHangs) {
    CreateTwoCaches();
    std::ofstream("/usr/vemo/etc/flashcache.conf").flush();
    Fault("tool.dmsetup", "hang");
    const Json answer = Answer({"report", "--seconds", "0.1", "--patience", "0.5", kArchive})["report"];
    EXPECT_EQ(answer["samples"], 0);
    EXPECT_THAT(Tool({"report", "--seconds", "0.1", "--patience", "0.5", "--force", kArchive}).err,
                HasSubstr("the report lacks a part: findings: no answer within 0.5 seconds"));
    const std::string folder = Unpack("/root/unpacked");
    const Json unmade = Json::Parse(Text(folder + "/report.json"))["unmade"];
    ASSERT_EQ(unmade.size(), 2U);
    EXPECT_THAT(std::string(unmade[0]), HasSubstr("findings: no answer within 0.5 seconds"));
    EXPECT_THAT(Text(folder + "/index.html"), HasSubstr("no answer within 0.5 seconds"));
    EXPECT_THAT(Text(folder + "/files/proc/flashcache/ssd-1+volume-1/flashcache_stats"), HasSubstr("reads="));
    EXPECT_THAT(RunProgram({"grep", "-rE", "md3|volume_1", folder}).out, IsEmpty());
}

}  // namespace
}  // namespace tests
