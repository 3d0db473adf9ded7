// Metrics of caches in the forms that scrapers and collectors of text files read.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>

#include "cli/tool.h"

namespace tests {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

// Each family is announced once, ahead of all its samples; each sample has the form that its type asks for.
void ExpectWellFormed(const std::string& text, bool isPlain) {
    const std::regex head("# (TYPE|UNIT|HELP) (flashcache[a-z_]*) (.+)");
    const std::regex sample(
        "(flashcache[a-z_]*)(\\{([a-z_]+=\"([^\"\\\\]|\\\\.)*\",?)+\\})? [0-9]+(\\.[0-9]+)?");
    std::set<std::string> announced;
    std::string family;
    std::string type;
    std::istringstream lines(text);
    std::smatch match;
    for (std::string line; std::getline(lines, line);) {
        if (line == "# EOF") {
            EXPECT_FALSE(isPlain);
            EXPECT_FALSE(std::getline(lines, line)) << "the end is the end";
        } else if (std::regex_match(line, match, head)) {
            if (match[2] != family) {
                EXPECT_TRUE(announced.insert(match[2]).second) << line;
            }
            family = match[2];
            type = match[1] == "TYPE" ? match[3].str() : type;
        } else {
            ASSERT_TRUE(std::regex_match(line, match, sample)) << line;
            const std::string ending = isPlain             ? ""
                                       : type == "counter" ? "_total"
                                       : type == "info"    ? "_info"
                                                           : "";
            EXPECT_EQ(match[1], family + ending) << line;
        }
    }
}

std::string Metrics(const Words& more = {}) {
    Words words = {"metrics"};
    words.insert(words.end(), more.begin(), more.end());
    const Ran ran = Tool(words);
    EXPECT_EQ(ran.code, 0) << ran.err;
    return ran.out;
}

TEST(Metrics, AreWellFormedWithAndWithoutCaches) {
    EXPECT_THAT(Metrics(), AllOf(HasSubstr("flashcache_caches 0\n"),
                                 HasSubstr("flashcache_findings{severity=\"critical\",muted=\"no\"} 0\n")));
    ExpectWellFormed(Metrics(), false);
    CreateDirtyCache();
    ASSERT_EQ(Tool({"create", "/dev/md4", "/dev/vg1/volume_2", "--size", "32M", "--mode", "thru"}).code, 0);
    const std::string text = Metrics();
    ExpectWellFormed(text, false);
    ExpectWellFormed(Metrics({"--plain"}), true);
    EXPECT_TRUE(text.ends_with("# EOF\n"));
    EXPECT_THAT(text,
                AllOf(HasSubstr("flashcache_dirty_bytes{cache=\"md3+volume_1\"} 1310720\n"),
                      HasSubstr("flashcache_writes_total{cache=\"md3+volume_1\"} 20\n"),
                      HasSubstr("flashcache_handle_state{cache=\"md3+volume_1\",flashcache_handle_state="
                                "\"normal\"} 1\n"),
                      HasSubstr("flashcache_state{cache=\"md4+volume_2\",flashcache_state=\"running\"} 1\n"),
                      HasSubstr("write_mode=\"thru\"")));
    EXPECT_EQ(Tool({"metrics", "--json"}).code, kUsage);
}

TEST(Metrics, OfACacheThatIsNotUpOrUnreadableCostNoOther) {
    CreateDirtyCache();
    ASSERT_EQ(Tool({"create", "/dev/md4", "/dev/vg1/volume_2", "--size", "32M"}).code, 0);
    ASSERT_EQ(Tool({"unload", "cachedev_0"}).code, 0);
    std::string text = Metrics();
    EXPECT_THAT(text,
                AllOf(HasSubstr("flashcache_state{cache=\"md3+volume_1\",flashcache_state=\"unloaded\"} 1\n"),
                      HasSubstr("flashcache_dirty_bytes{cache=\"md3+volume_1\"} 1310720\n"),
                      Not(HasSubstr("flashcache_reads_total{cache=\"md3+volume_1\"}")),
                      HasSubstr("flashcache_reads_total{cache=\"md4+volume_2\"}")));
    Fault("tool.dmsetup", "fail");
    text = Metrics();
    ExpectWellFormed(text, false);
    EXPECT_THAT(text, HasSubstr("severity=\"unknown\",muted=\"no\"} 1"));
}

TEST(Metrics, TellFindingsAndThatTheyAreMuted) {
    CreateCache();
    ASSERT_EQ(Tool({"attribute", "set", "cachedev_0", "force-remove", "--ignore-write-errors"}).code, 0);
    const std::string finding =
        "flashcache_finding{cache=\"md3+volume_1\",code=\"VFC-D063\",severity=\"critical\",muted=";
    EXPECT_THAT(Metrics(), AllOf(HasSubstr(finding + "\"no\"} 1\n"),
                                 HasSubstr("flashcache_findings{severity=\"critical\",muted=\"no\"} 1\n")));
    Tool({"doctor", "--mute", "VFC-D063", "--for", "7d"});
    EXPECT_THAT(Metrics(), AllOf(HasSubstr(finding + "\"yes\"} 1\n"),
                                 HasSubstr("flashcache_findings{severity=\"critical\",muted=\"no\"} 0\n"),
                                 HasSubstr("flashcache_findings{severity=\"critical\",muted=\"yes\"} 1\n")));
}

TEST(Metrics, GoToAFileAsAWhole) {
    CreateCache();
    const std::string file = "/tmp/flashcache.prom";
    umask(077);
    EXPECT_EQ(Metrics({"--output", file}), "");
    EXPECT_EQ(std::filesystem::status(file).permissions(), std::filesystem::perms(0644))
        << "whatever the umask";
    std::ostringstream text;
    text << std::ifstream(file).rdbuf();
    ExpectWellFormed(text.str(), true);
    EXPECT_THAT(text.str(), HasSubstr("flashcache_caches 1\n"));
    for (const auto& entry : std::filesystem::directory_iterator("/tmp")) {
        EXPECT_THAT(entry.path().string(), Not(HasSubstr("prom.")));
    }
    EXPECT_EQ(Tool({"metrics", "--output", "/nowhere/flashcache.prom"}).code, kUsage);
    const Ran full = Tool({"metrics", "--output", "/proc/flashcache.prom"});
    EXPECT_EQ(full.code, 1);
    EXPECT_THAT(full.err, HasSubstr("the metrics could not be written to /proc/flashcache.prom"));
}

}  // namespace
}  // namespace tests
