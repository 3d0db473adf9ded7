// The statistics of caches, at once and watched.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <sstream>

#include "cli/tool.h"

namespace tests {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::SizeIs;
using ::testing::StartsWith;

Words Lines(const std::string& text) {
    Words lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

void Copy(const Words& words) {
    Words all = {"dd", "bs=64k"};
    all.insert(all.end(), words.begin(), words.end());
    ASSERT_EQ(RunProgram(all).code, 0);
}

void WriteBlocks(const char* count) {
    Copy({"if=/dev/urandom", "of=/dev/mapper/cachedev_0", std::string("count=") + count, "oflag=direct"});
}

void ReadBlocks(const char* count) {
    Copy({"if=/dev/mapper/cachedev_0", "of=/dev/null", std::string("count=") + count, "iflag=direct"});
}

TEST(Stats, CountWhatWasReadAndWrittenSinceLoad) {
    CreateCache();
    WriteBlocks("20");
    ReadBlocks("30");
    const Json cache = Answer({"stats", "cachedev_0"})["caches"][0];
    const std::pair<const char*, double> facts[] = {
        {"reads", 30},        {"read_hits", 20},           {"read_hit_percent", 66.6},
        {"writes", 20},       {"write_hits", 0},           {"write_misses_to_ssd", 20},
        {"ssd_writes", 30},   {"write_hit_percent", 100},  {"dirty_blocks", 20},
        {"volume_reads", 10}, {"dirty_bytes", 20 * 65536}, {"dirty_percent", 1.9},
        {"write_errors", 0},  {"cached_bytes", 30 * 65536}};
    for (const auto& [key, number] : facts) {
        EXPECT_FALSE(cache[key].IsNull()) << key;
        EXPECT_EQ(cache[key].Number(), number) << key;
    }
    EXPECT_THAT(Tool({"stats"}).out, HasSubstr("Read hit rate               66.6%"));
    // The verbs that tell the same facts tell them alike.
    const Json status = Answer({"status", "cachedev_0"})["caches"][0];
    for (const auto* key : {"reads", "read_hits", "writes", "write_misses_to_ssd", "dirty_blocks"}) {
        EXPECT_EQ(status[key], cache[key]) << key;
    }
}

TEST(Stats, TellWhatTheKernelDoesNotCountAsNotKnown) {
    ASSERT_EQ(Tool({"create", "/dev/md3", "/dev/vg1/volume_1", "--size", "32M", "--mode", "around"}).code, 0);
    ASSERT_EQ(Tool({"create", "/dev/md4", "/dev/vg1/volume_2", "--size", "32M", "--mode", "thru"}).code, 0);
    WriteBlocks("4");
    const Json caches = Answer({"stats"})["caches"];
    for (const auto* key :
         {"write_hits", "write_misses_to_ssd", "write_hit_percent", "write_backs", "metadata_writes"}) {
        EXPECT_TRUE(caches[0][key].IsNull()) << key;
    }
    EXPECT_EQ(caches[0]["writes"], 4);
    EXPECT_EQ(caches[0]["uncached_writes"], 4);
    EXPECT_TRUE(caches[0]["read_hit_percent"].IsNull()) << "of no reads";
    EXPECT_EQ(caches[1]["reads"], 0) << "the library has no status of it, the kernel counts all the same";
    EXPECT_TRUE(caches[1]["cached_bytes"].IsNull());
    EXPECT_TRUE(Answer({"status", "cachedev_0"})["caches"][0]["write_hits"].IsNull());
    EXPECT_TRUE(Answer({"list"})["caches"][0]["write_hit_percent"].IsNull());
    EXPECT_THAT(Tool({"stats", "cachedev_0"}).out, Not(HasSubstr("Write hits")));

    Fault("file.flashcache_stats", "rubbish");
    EXPECT_TRUE(Answer({"stats", "cachedev_0"})["caches"][0]["reads"].IsNull());
    ASSERT_EQ(Tool({"unload", "cachedev_0"}).code, 0);
    EXPECT_EQ(Answer({"stats"})["caches"][0]["state"], "unloaded");
    EXPECT_THAT(Tool({"stats", "md3+volume_1"}).err, HasSubstr("next: vemocachectl load md3+volume_1"));
}

TEST(Stats, RefuseWhatMakesNoSense) {
    CreateCache();
    const std::pair<Words, const char*> cases[] = {
        {{"--watch", "0"}, "no number of seconds from 0.1 to 86400"},
        {{"--watch", "1s"}, "no number of seconds"},
        {{"--watch", "nan"}, "no number of seconds"},
        {{"--count", "2"}, "--count requires --watch"},
        {{"--watch", "1", "--count", "0"}, "--count"},
        {{"--csv", "--json"}, "two forms of one answer"},
        {{"--fields", "cachedev_0"}, "--fields"},
        {{"--watch", "1", "-o", "raeds"}, "no field"}};
    for (const auto& [words, why] : cases) {
        Words all = {"stats"};
        all.insert(all.end(), words.begin(), words.end());
        const Ran ran = Tool(all);
        EXPECT_EQ(ran.code, kUsage) << why;
        EXPECT_THAT(ran.out + ran.err, HasSubstr(why));
    }
    EXPECT_EQ(Tool({"stats", "nothing", "--watch", "1"}).code, 1);
}

TEST(Stats, ToldAsFields) {
    const Json fields = Answer({"stats", "--fields"})["fields"];
    EXPECT_EQ(fields[0]["key"], "time");
    EXPECT_GT(fields.size(), 50U);
}

TEST(StatsWatch, GivesCsvToAPipe) {
    EXPECT_EQ(Tool({"stats", "--watch", "0.1", "--count", "2"}).out, "");
    CreateCache();
    const Words lines = Lines(Tool({"stats", "--watch", "0.1", "--count", "3"}).out);
    ASSERT_THAT(lines, SizeIs(4));
    EXPECT_THAT(lines[0], StartsWith("time,name,state,event,interval_seconds,reads_per_second,"));
    EXPECT_THAT(lines[1], HasSubstr("Z,md3+volume_1,running,,,,"));
    EXPECT_THAT(lines[2], AllOf(HasSubstr("Z,md3+volume_1,running,,"), Not(HasSubstr("running,,,"))));
    EXPECT_EQ(Tool({"stats", "--watch", "1", "--count", "1", "-o", "name,write_errors"}).out,
              "name,write_errors\nmd3+volume_1,0\n");
    EXPECT_THAT(Tool({"stats", "--watch", "1", "--count", "1", "--no-headings", "-o", "name"}).out,
                "md3+volume_1\n");
    EXPECT_THAT(Tool({"stats", "--csv", "-o", "name,reads"}).out, "name,reads\nmd3+volume_1,0\n");
}

// The first line on which the cache has this, after what a reader of lines has seen already.
Json Await(RunningTool& tool, const std::string& key, const std::string& value) {
    for (std::string line = tool.NextLine(); !line.empty(); line = tool.NextLine()) {
        const Json cache = Json::Parse(line)["caches"][0];
        if (std::string(cache[key]) == value) {
            return cache;
        }
    }
    ADD_FAILURE() << "no " << key << " " << value;
    return {};
}

TEST(StatsWatch, TellsResetsAndGoesOnWithoutTheCache) {
    CreateCache();
    ReadBlocks("9");
    RunningTool watch({"stats", "--watch", "0.1", "--json", "cachedev_0"});
    const Json first = Await(watch, "state", "running");
    EXPECT_TRUE(first["reads_per_second"].IsNull()) << "there is nothing to compare it with";
    EXPECT_EQ(first["dirty_bytes"], 0);
    Await(watch, "reads_per_second", "0.0");
    ReadBlocks("9");
    Json busy;
    while (busy["reads_per_second"].Number() <= 0) {
        busy = Json::Parse(watch.NextLine())["caches"][0];
    }
    EXPECT_EQ(busy["interval_read_hit_percent"].Number(), 100);
    EXPECT_TRUE(busy["interval_write_hit_percent"].IsNull());

    ASSERT_EQ(Tool({"knob", "set", "cachedev_0", "zero_stats", "1"}).code, 0);
    EXPECT_TRUE(Await(watch, "event", "reset")["reads_per_second"].IsNull());
    EXPECT_EQ(Await(watch, "event", "null")["reads_per_second"].Number(), 0);

    ASSERT_EQ(Tool({"unload", "cachedev_0"}).code, 0);
    const Json vanished = Await(watch, "event", "vanished");
    EXPECT_EQ(vanished["state"], "unloaded");
    EXPECT_TRUE(vanished["reads_per_second"].IsNull());
    ASSERT_EQ(Tool({"load", "md3+volume_1"}).code, 0);
    EXPECT_TRUE(Await(watch, "event", "returned")["reads_per_second"].IsNull());
    ASSERT_EQ(Tool({"delete", "md3+volume_1"}).code, 0);
    EXPECT_TRUE(Await(watch, "state", "gone")["dirty_bytes"].IsNull());
    watch.Signal(SIGTERM);
    EXPECT_EQ(watch.Wait(), 128 + SIGTERM);
}

TEST(StatsWatch, EndsWhenNobodyReads) {
    CreateCache();
    const Ran ran =
        RunProgram({"sh", "-c", std::string(VEMOCACHECTL_PATH) + " stats --watch 3600 | head -2"});
    EXPECT_THAT(Lines(ran.out), SizeIs(2));
    EXPECT_EQ(ran.err, "");
}

TEST(StatsWatch, DrawsATableOnATerminal) {
    CreateCache();
    const struct {
        const char* term;
        const char* locale;
        Words options;
        const char* shown;
        const char* notShown;
    } cases[] = {
        {"xterm", "C.UTF-8", {}, "\x1b[2A\r\x1b[J", "  _"},
        {"xterm", "C.UTF-8", {}, "▁", "  _"},
        {"xterm", "C", {}, "  _", "▁"},
        {"dumb", "C", {}, "  _", "\x1b"},
        {"xterm", "C", {"--csv"}, "time,name", "\x1b"},
    };
    for (const auto& one : cases) {
        ASSERT_EQ(setenv("TERM", one.term, 1), 0);
        ASSERT_EQ(setenv("LC_ALL", one.locale, 1), 0);
        Words words = {"stats", "--watch", "0.1", "--count", "3"};
        words.insert(words.end(), one.options.begin(), one.options.end());
        const Ran ran = ToolOnTerminal(words, "md3+volume_1", "", 80);
        EXPECT_EQ(ran.code, 0);
        EXPECT_THAT(ran.out, HasSubstr(one.shown));
        EXPECT_THAT(ran.out, Not(HasSubstr(one.notShown)));
    }
    for (const unsigned short columns : std::initializer_list<unsigned short>{12, 5, 1}) {
        EXPECT_EQ(ToolOnTerminal({"stats", "--watch", "0.1", "--count", "2"}, "m", "", columns).code, 0);
    }
}

}  // namespace
}  // namespace tests
