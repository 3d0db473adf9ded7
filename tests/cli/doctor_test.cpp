// vemocachectl doctor on the appliance: the healthy, the forms of its answer, its exit codes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "cli/tool.h"

namespace tests {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;
using ::testing::UnorderedElementsAre;

constexpr int kWarning = 1;
constexpr int kCritical = 2;
constexpr int kUnknown = 3;

void ExpectWell(const std::string& what) {
    const Ran ran = Tool({"doctor"});
    EXPECT_EQ(ran.code, 0) << what << ran.out << ran.err;
    EXPECT_THAT(ran.out, StartsWith("Nothing is wrong")) << what;
    EXPECT_EQ(ran.err, "") << what;
}

void ForceRemove() {
    ASSERT_EQ(Tool({"attribute", "set", "cachedev_0", "force-remove", "--ignore-write-errors"}).code, 0);
}

TEST(Doctor, FindsNothingWrongWithTheHealthy) {
    ExpectWell("no cache");
    for (const char* mode : {"back", "thru", "around", "back_bypass", "back_crash"}) {
        ASSERT_EQ(Tool({"create", "/dev/md3", "/dev/vg1/volume_1", "--size", "32M", "--mode", mode,
                        "--discard-content"})
                      .code,
                  0);
        ASSERT_EQ(RunProgram({"dd", "if=/dev/urandom", "of=/dev/mapper/cachedev_0", "bs=64k", "count=20",
                              "oflag=direct"})
                      .code,
                  0);
        ExpectWell(mode);
        EXPECT_THAT(Tool({"doctor"}).out, HasSubstr("Nothing is wrong with 1 cache."));
        ASSERT_EQ(Tool({"flush", "cachedev_0", "-q"}).code, 0) << mode;
        ExpectWell(std::string("after a flush: ") + mode);
        ASSERT_EQ(Tool({"unload", "cachedev_0"}).code, 0);
        ExpectWell(std::string("unloaded in order: ") + mode);
        ASSERT_EQ(Tool({"load", "md3+volume_1"}).code, 0);
        ExpectWell(std::string("loaded again: ") + mode);
        ASSERT_EQ(Tool({"delete", "cachedev_0"}).code, 0);
    }
}

TEST(Doctor, FindsNothingWrongWithARunningFlush) {
    CreateDirtyCache();
    RunningTool flush({"flush", "cachedev_0", "--json"});
    while (Answer({"flush", "--status", "cachedev_0"})["flush"]["handle_state"] != "flush") {
    }
    ExpectWell("a flush that runs");
}

TEST(Doctor, EndsAsMonitoringExpects) {
    CreateCache();
    ASSERT_EQ(Tool({"knob", "set", "cachedev_0", "dirty_thresh_pct", "40"}).code, 0);
    std::ofstream("/tmp/cache-debug-remove").flush();
    EXPECT_EQ(Tool({"doctor", "--check", "VFC-D095"}).code, 0) << "infos alone are well";
    std::ofstream("/tmp/flashcache_stats").flush();
    EXPECT_EQ(Tool({"doctor", "--check", "VFC-D095"}).code, kWarning);
    ForceRemove();
    EXPECT_EQ(Tool({"doctor"}).code, kCritical);
    EXPECT_EQ(Tool({"doctor", "--check", "VFC-D012"}).code, 0);
    Fault("file.flashcache_errors", "rubbish");
    EXPECT_EQ(Tool({"doctor", "--check", "VFC-D080"}).code, kUnknown);
    EXPECT_EQ(Tool({"doctor", "--check", "VFC-D080", "--check", "VFC-D063"}).code, kCritical);
    const Words wrong[] = {{"doctor", "nothing"},        {"doctor", "--flags"},
                           {"doctor", "-o", "nothing"},  {"doctor", "--check", "VFC-D999"},
                           {"doctor", "--explain", "x"}, {"doctor", "--mute", "VFC-D063"}};
    for (const auto& words : wrong) {
        EXPECT_EQ(Tool(words).code, kUnknown) << words.back();
    }
    EXPECT_THAT(Tool({"doctor", "--help"}).out, HasSubstr("2  something critical"));
    EXPECT_THAT(Tool({"doctor", "--check", "VFC-D036"}).err, HasSubstr("did you mean VFC-D03"));
}

TEST(Doctor, KeepsItsNames) {
    CreateDirtyCache();
    ForceRemove();
    const auto answer = Answer({"doctor"}, kCritical);
    EXPECT_THAT(answer.Keys(), UnorderedElementsAre("format_version", "findings", "total"));
    EXPECT_THAT(answer["total"].Keys(), UnorderedElementsAre("caches", "critical", "warning", "unknown",
                                                             "info", "muted", "exit_code"));
    const auto finding = answer["findings"][0];
    EXPECT_THAT(finding.Keys(),
                UnorderedElementsAre("severity", "code", "caches", "summary", "count", "data_loss", "muted",
                                     "muted_until", "details", "commands", "advice"));
    EXPECT_EQ(finding["severity"], "critical");
    EXPECT_EQ(finding["code"], "VFC-D063");
    EXPECT_EQ(finding["caches"][0], "md3+volume_1");
    EXPECT_EQ(finding["data_loss"], true);
    EXPECT_EQ(finding["muted_until"], nullptr);
    EXPECT_EQ(finding["details"]["dirty_blocks"], kDirty);
    EXPECT_EQ(finding["details"]["dirty_bytes"], kDirty * 65536);
    EXPECT_EQ(finding["commands"][0], "vemocachectl attribute set md3+volume_1 none");
    EXPECT_EQ(answer["total"]["critical"], 1);
    EXPECT_EQ(answer["total"]["exit_code"], kCritical);
}

TEST(Doctor, TellsTheSameInTextWithinEightyColumns) {
    CreateDirtyCache();
    ForceRemove();
    const Ran ran = Tool({"doctor"});
    EXPECT_THAT(ran.out, StartsWith("critical  VFC-D063  md3+volume_1\n  force-remove is set"));
    EXPECT_THAT(ran.out, HasSubstr("\n    Dirty         1.2 MiB\n  Can data be lost: yes\n"));
    EXPECT_THAT(ran.out, HasSubstr("\n  $ vemocachectl attribute set md3+volume_1 none\n"));
    EXPECT_THAT(ran.out, ::testing::EndsWith("muted.\n"));
    std::istringstream lines(ran.out);
    for (std::string line; std::getline(lines, line);) {
        EXPECT_LE(line.size(), 80U) << line;
    }
    EXPECT_THAT(Tool({"doctor", "--bytes"}).out, HasSubstr("1310720"));
    const Ran table = Tool({"doctor", "-o", "code,severity,caches", "--no-headings"});
    EXPECT_EQ(table.out, "VFC-D063  critical  md3+volume_1\n");
    EXPECT_EQ(table.code, kCritical);
}

TEST(Doctor, IsAskedOfOneCache) {
    CreateCache();
    ASSERT_EQ(Tool({"create", "/dev/md4", "/dev/vg1/volume_2", "--size", "32M"}).code, 0);
    ForceRemove();
    EXPECT_EQ(Tool({"doctor", "/dev/md3"}).code, kCritical);
    const Ran other = Tool({"doctor", "/dev/md4"});
    EXPECT_EQ(other.code, 0);
    EXPECT_EQ(other.out, "Nothing is wrong with md4+volume_2.\n");
    Fault("tool.dmsetup", "fail");
    EXPECT_EQ(Tool({"doctor", "md4+volume_2"}).code, kUnknown) << "nobody knows whether it is up";
}

TEST(Doctor, ExplainsEachCheckItLists) {
    const auto checks = Answer({"doctor", "--list-checks"})["checks"];
    EXPECT_GE(checks.size(), 40U);
    for (const auto& check : checks) {
        const auto code = std::string(check["code"]);
        const auto explained = Answer({"doctor", "--explain", code})["check"];
        EXPECT_EQ(explained["title"], check["title"]);
        EXPECT_GT(std::string(explained["explanation"]).size(), 50U) << code;
    }
    EXPECT_THAT(Tool({"doctor", "--explain", "VFC-D063"}).out, HasSubstr("force-remove"));
}

}  // namespace
}  // namespace tests
