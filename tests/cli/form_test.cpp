// The general options that give all answers their form, and what the exit code alone tells.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "cli/tool.h"

namespace tests {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::SizeIs;
using ::testing::StartsWith;

Words Lines(const std::string& text) {
    Words lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        line.erase(line.find_last_not_of('\r') + 1);
        lines.push_back(line);
    }
    return lines;
}

// What a terminal of so many columns shows; `shown` is part of it.
Words OnTerminal(Words words, const std::string& shown, unsigned short columns) {
    return Lines(ToolOnTerminal(std::move(words), shown, "", columns).out);
}

// A cache that runs, and one that is unloaded and has a problem.
void CreateBoth() {
    CreateCache();
    ASSERT_EQ(Tool({"unload", "cachedev_0"}).code, 0);
    ASSERT_EQ(Tool({"create", "/dev/md4", "/dev/vg1/volume_2", "--size", "128M", "--mode", "around"}).code,
              0);
}

TEST(Form, OfTablesHoldsTheWidthOfTheTerminal) {
    CreateBoth();
    const std::vector<Words> tables = {
        {"config", "list"}, {"pin", "list-support"}, {"knob", "get", "md4+volume_2"}, {"memory"},
        {"modules"},        {"ssd", "list"}};
    for (const auto& table : tables) {
        for (const auto& line : OnTerminal(table, "\n", 80)) {
            EXPECT_LE(line.size(), 80U) << table[0] << ": " << line;
        }
    }
    const Words list = OnTerminal({"list"}, "md4", 80);
    ASSERT_EQ(list.size(), 5U);
    EXPECT_EQ(list[0], "NAME          STATE     DEVICE      SSD  VOLUME        MODE         SIZE  DIRTY");
    EXPECT_THAT(list[1], StartsWith("md3+volume_1  unloaded"));
    EXPECT_EQ(list[3], "");
    EXPECT_THAT(list[4], StartsWith("md3+volume_1: its SSD holds no dirty block"));
    EXPECT_THAT(OnTerminal({"list"}, "md4", 40)[0], Not(HasSubstr("MODE")));
    // All of it goes to scripts, and to those who ask for it.
    const Ran piped = Tool({"list"});
    EXPECT_THAT(Lines(piped.out)[0], HasSubstr("READ HITS  WRITE HITS  PROBLEM"));
    EXPECT_EQ(OnTerminal({"list", "--wide"}, "md4", 40), Lines(piped.out));
}

TEST(Form, IsChosenForEveryVerb) {
    CreateBoth();
    const struct {
        Words words;
        const char* out;
    } cases[] = {
        {{"list", "-o", "size_bytes,name", "--sort", "-size_bytes"},
         "     SIZE  NAME\n128.0 MiB  md4+volume_2\n 64.0 MiB  md3+volume_1\n"},
        {{"--no-headings", "list", "-o", "name", "--bytes"}, "md3+volume_1\nmd4+volume_2\n"},
        {{"status", "md4+volume_2", "--output", "size_bytes", "--bytes", "--no-headings"}, "134217728\n"},
        {{"status", "-o", "dirty_bytes,name", "md4+volume_2"}, "  Dirty  0 B\n  Name   md4+volume_2\n"},
        {{"list", "--json", "-o", "size_bytes,name", "--sort", "-name"},
         R"({"format_version":2,"caches":[{"size_bytes":134217728,"name":"md4+volume_2"},)"
         R"({"size_bytes":67108864,"name":"md3+volume_1"}]})"
         "\n"},
        {{"size", "md4+volume_2", "--json", "-o", "size_bytes"},
         "{\"format_version\":2,\"size\":{\"size_bytes\":134217728}}\n"},
        {{"memory", "-o", "fixed_bytes", "--no-headings"}, "416.0 KiB\n416.0 KiB\n"},
        {{"list", "--filter", "size_bytes>64M", "-o", "name", "--no-headings"}, "md4+volume_2\n"},
        {{"status", "--filter", "state=unloaded", "--filter", "ssd=md3", "-o", "name"},
         "  Name  md3+volume_1\n"},
    };
    for (const auto& one : cases) {
        const Ran ran = Tool(one.words);
        EXPECT_EQ(ran.code, 0) << ran.err;
        EXPECT_EQ(ran.out, one.out);
    }
}

TEST(Form, OfFieldsThatAreNoneIsWrongUsage) {
    CreateCache();
    for (Words words : std::vector<Words>{{"list", "-o", "name,nmae"},
                                          {"list", "--sort", "nmae"},
                                          {"list", "--filter", "nmae=x"},
                                          {"state", "get", "cachedev_0", "-o", "nmae"},
                                          {"config", "show", "md3+volume_1", "-o", "nmae"}}) {
        const Ran text = Tool(words);
        EXPECT_EQ(text.code, kUsage) << words[0];
        EXPECT_EQ(text.out, "");
        EXPECT_THAT(text.err, HasSubstr("no field \"nmae\"; its fields are name, "));
        words.emplace_back("--json");
        EXPECT_EQ(Answer(words, kUsage)["error"]["kind"], "usage");
    }
    EXPECT_EQ(Tool({"list", "-o", ""}).code, kUsage);
}

// What was changed cannot be refused any more: the answer comes whole, and the exit code tells.
TEST(Form, OfFieldsThatAreNoneCostsNoAnswerToAChange) {
    CreateCache();
    const Ran ran = Tool({"unload", "cachedev_0", "-o", "nmae", "--json"});
    EXPECT_EQ(ran.code, 1);
    EXPECT_EQ(ran.Json()["unloaded"]["name"], "md3+volume_1");
    EXPECT_THAT(ran.err, HasSubstr("no field \"nmae\""));
    EXPECT_EQ(Answer({"load", "md3+volume_1", "-o", "state"})["cache"],
              Json::Parse(R"({"state": "running"})"));
}

TEST(Form, OfTheQuietLeavesFailuresAlone) {
    EXPECT_EQ(Tool({"list", "--quiet"}).out, "");
    const Ran created =
        Tool({"create", "/dev/md3", "/dev/vg1/volume_1", "--size", "64M", "--mode", "thru", "-q"});
    EXPECT_EQ(created.err, "");
    EXPECT_THAT(created.out, StartsWith("  Name "));
    EXPECT_THAT(Tool({"-q", "unload", "nothing"}).err, HasSubstr("there is no cache nothing"));
    ASSERT_EQ(Tool({"delete", "cachedev_0"}).code, 0);
    CreateDirtyCache();
    Fault("cleaning", "run");
    const Ran flushed = Tool({"flush", "cachedev_0", "-q", "--json"});
    EXPECT_EQ(flushed.err, "");
    EXPECT_EQ(Lines(flushed.out).size(), 1U) << flushed.out;
    EXPECT_EQ(flushed.Json()["flush"]["result"], "done");
}

TEST(Form, OfJsonIsOneDocumentAnAnswer) {
    CreateDirtyCache();
    Fault("cleaning", "run");
    const std::vector<Words> verbs = {{"list"},
                                      {"status"},
                                      {"memory"},
                                      {"knob", "get", "cachedev_0"},
                                      {"config", "list"},
                                      {"state", "get", "cachedev_0"},
                                      {"unload", "nothing"},
                                      {"delete", "cachedev_0"}};
    for (Words words : verbs) {
        words.emplace_back("--json");
        EXPECT_THAT(Lines(Tool(words).out), SizeIs(1)) << words[0];
    }
}

TEST(Exit, TellsAYesFromANo) {
    const struct {
        Words yes;
        Words no;
        Words failure;
    } cases[] = {
        {{"probe", "/dev/md3"}, {"probe", "/dev/md4"}, {"probe", "/dev/md9"}},
        {{"ssd", "check", "QM-S400", "480G"}, {"ssd", "check", "QM-S400", "600G"}, {}},
        {{"serials", "check", "c", "S1"},
         {"serials", "check", "c", "S1", "S2"},
         {"serials", "check", "d", "S1"}},
        {{"apm", "get", "k"}, {"apm", "get", "l"}, {}},
    };
    CreateCache();
    ASSERT_EQ(Tool({"serials", "set", "c", "S1"}).code, 0);
    ASSERT_EQ(Tool({"apm", "set", "k"}).code, 0);
    ASSERT_EQ(Tool({"apm", "clear", "l"}).code, 0);
    for (const auto& one : cases) {
        EXPECT_EQ(Tool(one.yes).code, 0) << one.yes[0];
        const Ran no = Tool(one.no);
        EXPECT_EQ(no.code, kNo) << one.no[0];
        EXPECT_EQ(no.err, "");
        EXPECT_NE(no.out, "");
        EXPECT_EQ(one.failure.empty() ? 1 : Tool(one.failure).code, 1);
        Words help = one.no;
        help.emplace_back("--help");
        EXPECT_THAT(Tool(help).out, HasSubstr("3  no: the ")) << one.no[0];
    }
    EXPECT_THAT(Tool({"--help"}).out, HasSubstr("EXIT CODES"));
}

TEST(Help, IsToldInTwoWays) {
    for (const Words& verb :
         std::vector<Words>{{}, {"list"}, {"knob"}, {"knob", "get"}, {"serials", "check"}}) {
        Words asked = verb;
        asked.insert(asked.begin(), "help");
        Words flagged = verb;
        flagged.emplace_back("--help");
        const Ran told = Tool(asked);
        EXPECT_EQ(told.code, 0);
        EXPECT_THAT(told.out, HasSubstr("Usage: vemocachectl"));
        EXPECT_EQ(told.out, Tool(flagged).out);
    }
    const std::pair<Words, const char*> strangers[] = {{{"help", "fly"}, "no verb fly"},
                                                       {{"fly", "--help"}, "no verb fly"},
                                                       {{"help", "knob", "fly"}, "no verb knob fly"},
                                                       {{"knob", "fly"}, "no verb knob fly"}};
    for (const auto& [words, why] : strangers) {
        const Ran ran = Tool(words);
        EXPECT_EQ(ran.code, kUsage);
        EXPECT_THAT(ran.err, HasSubstr(why));
    }
}

}  // namespace
}  // namespace tests
