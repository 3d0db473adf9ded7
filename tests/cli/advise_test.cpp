// Advice of how large a cache should be.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "cli/tool.h"

namespace tests {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

constexpr const char* kTrace = "/tmp/trace.csv";

// Blocks of 64 KiB that are read and written again and again, each in turn.
void WriteTrace(int blocks, int requests) {
    std::ofstream trace(kTrace);
    for (int i = 0; i < requests; ++i) {
        trace << "17," << (i % 3 == 0 ? 'R' : 'W') << ',' << (i * 7 % blocks) * 65536 << ",65536,"
              << std::int64_t{1'000'000} * (i + 1) << '\n';
    }
}

std::string TextOf(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

TEST(AdviseTrace, NamesASizeAndDrawsTheCurve) {
    WriteTrace(600, 20'000);
    const Json answer = Answer({"advise", "trace", kTrace, "--svg", "/tmp/curve.svg"});
    EXPECT_EQ(answer["total"]["verdict"], "helps");
    EXPECT_EQ(answer["total"]["size_bytes"], 64 << 20);
    EXPECT_EQ(answer["total"]["mode"], "back");
    EXPECT_EQ(answer["total"]["write_requests"], 13'333);
    const std::string picture = TextOf("/tmp/curve.svg");
    EXPECT_THAT(picture, HasSubstr("size of the cache"));
    EXPECT_THAT(picture, HasSubstr("chosen: 64.0 MiB"));
    EXPECT_THAT(picture, HasSubstr("prefers-color-scheme: dark"));
    EXPECT_EQ(RunProgram({"sh", "-c", "cat /tmp/trace.csv | " VEMOCACHECTL_PATH " --json advise trace -"})
                  .Json()["total"],
              answer["total"]);
}

TEST(AdviseTrace, PlotsOnATerminalAlone) {
    WriteTrace(600, 2'000);
    const Ran piped = Tool({"advise", "trace", kTrace});
    EXPECT_THAT(piped.out, HasSubstr("CHOSEN"));
    EXPECT_THAT(piped.out, Not(HasSubstr("100% |")));
    const Ran shown = ToolOnTerminal({"advise", "trace", kTrace}, "Hits lost", "", 80);
    EXPECT_THAT(shown.out, HasSubstr("100% |"));
    EXPECT_THAT(shown.out, HasSubstr("^ knee"));
    std::istringstream lines(shown.out.substr(shown.out.find("Advice")));
    for (std::string line; std::getline(lines, line);) {
        EXPECT_LE(line.size(), 82U) << line;  // with the terminal's line end
    }
}

TEST(AdviseTrace, CountsWhatADeviceOfThatSizeWould) {
    WriteTrace(600, 3'000);
    const Json all =
        Answer({"advise", "trace", kTrace, "--exact", "--size", "64M", "--mode", "thru"})["total"];
    EXPECT_EQ(all["simulated_percent"].Number(), 100);
    EXPECT_EQ(all["counters"]["reads"], 1'000);
    EXPECT_EQ(all["counters"]["disk_writes"], 2'000);
    EXPECT_EQ(all["counters"]["replacement"], 0);
    std::ofstream(kTrace, std::ios::app) << "17,R,what,65536,1\n";
    EXPECT_THAT(std::string(Answer({"advise", "trace", kTrace})["remark"]), HasSubstr("record 3001"));
}

TEST(AdviseTrace, RefusesWhatIsNoTrace) {
    std::ofstream("/tmp/rubbish") << "neither this\nnor that\n";
    std::ofstream("/tmp/empty");
    WriteTrace(600, 10);
    const struct {
        Words words;
        int code;
        const char* says;
    } cases[] = {
        {{"/tmp/nothing"}, 1, "/tmp/nothing"},
        {{"/tmp/rubbish"}, 1, "neither this"},
        {{"/tmp/empty"}, 1, "empty"},
        {{kTrace, "--format", "sorcery"}, kUsage, "sorcery"},
        {{kTrace, "--size", "1"}, 1, "no block"},
        {{kTrace, "--sample", "3"}, kUsage, "--sample"},
        {{kTrace, "--svg", "/tmp/nowhere/else/curve.svg"}, kUsage, "/tmp/nowhere/else is no folder"},
        {{kTrace, "--exact", "--block", "4K", "--size", "100T"}, 1, "cannot be simulated in full"},
    };
    for (const auto& [words, code, says] : cases) {
        Words all = {"advise", "trace"};
        all.insert(all.end(), words.begin(), words.end());
        const Ran ran = Tool(all);
        EXPECT_EQ(ran.code, code) << testing::PrintToString(words);
        EXPECT_THAT(ran.err, HasSubstr(says));
        EXPECT_EQ(ran.out, "") << says;
    }
}

std::string VerdictOnCache() {
    return std::string(Answer({"advise", "cache", "cachedev_0"})["cache"]["verdict"]);
}

// Reads blocks of 64 KiB from the first one on, so often.
void ReadThrough(int blocks, int times) {
    for (int i = 0; i < times; ++i) {
        ASSERT_EQ(RunProgram({"dd", "if=/dev/mapper/cachedev_0", "of=/dev/null", "bs=64k", "iflag=direct",
                              "status=none", "count=" + std::to_string(blocks)})
                      .code,
                  0);
    }
}

// The usual cache has 1024 blocks.
TEST(AdviseCache, JudgesByWhatTheKernelCounts) {
    CreateCache();
    EXPECT_EQ(VerdictOnCache(), "too_early");
    ReadThrough(900, 3);
    EXPECT_EQ(VerdictOnCache(), "earns_its_size");
    ASSERT_EQ(Tool({"knob", "set", "cachedev_0", "zero_stats", "1"}).code, 0);
    ASSERT_EQ(Tool({"knob", "set", "cachedev_0", "skip_seq_thresh_kb", "64"}).code, 0);
    ASSERT_EQ(RunProgram({"dd", "if=/dev/mapper/cachedev_0", "of=/dev/null", "bs=1M", "iflag=direct",
                          "status=none", "skip=64"})
                  .code,
              0);
    EXPECT_EQ(VerdictOnCache(), "bypassed");
    ASSERT_EQ(Tool({"knob", "set", "cachedev_0", "skip_seq_thresh_kb", "0"}).code, 0);
    ASSERT_EQ(Tool({"knob", "set", "cachedev_0", "zero_stats", "1"}).code, 0);
    ReadThrough(4000, 2);
    EXPECT_EQ(VerdictOnCache(), "thrashes");
    const Ran none = Tool({"advise", "cache", "md9"});
    EXPECT_EQ(none.code, 1);
}

TEST(AdviseVolume, GoesByTheFilesLastTouched) {
    CreateCache();
    for (const Words& words : std::vector<Words>{
             {"mkfs.ext4", "-q", "/dev/mapper/cachedev_0"},
             {"mount", "/dev/mapper/cachedev_0", "/volume1"},
             {"mkdir", "/volume1/share"},
             {"dd", "if=/dev/zero", "of=/volume1/share/file", "bs=1M", "count=90", "status=none"},
             {"sync"}}) {
        ASSERT_EQ(RunProgram(words).code, 0) << words.front();
    }
    const Ran uncounted = Tool({"advise", "volume", "/volume1"});
    EXPECT_EQ(uncounted.code, 1);
    EXPECT_THAT(uncounted.err, HasSubstr("vemocachectl filestat run /volume1"));
    ASSERT_EQ(Tool({"filestat", "run", "/volume1"}).code, 0);
    const Json volume = Answer({"advise", "volume", "/volume1", "--ssd", "/dev/md3"})["volume"];
    EXPECT_GE(volume["hot_week_bytes"].Number(), 90 << 20);
    EXPECT_EQ(volume["size_bytes"], 128 << 20);
    EXPECT_EQ(volume["ssd"], "/dev/md3");
    EXPECT_EQ(Tool({"advise", "volume", "/volume1", "--ssd", "/dev/md9"}).code, 1);
    EXPECT_EQ(Tool({"advise", "volume", ""}).code, kUsage);
    ASSERT_EQ(Tool({"filestat", "run", "/volume1/"}).code, 0);
    EXPECT_EQ(Answer({"advise", "volume", "/volume1/"})["volume"]["id"], "volume1");
}

}  // namespace
}  // namespace tests
