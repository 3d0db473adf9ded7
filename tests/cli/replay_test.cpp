// A recorded trace is played against a cache device, and the advice on what reached the device must tell what
// the device has counted.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "cli/tool.h"
#include "support/private_folder.h"

namespace tests {
namespace {

using ::testing::HasSubstr;

// Requests of which many meet the same blocks, in part and whole, with streams among them.
constexpr const char* kMakeTrace = R"(awk 'BEGIN {
    srand(7)
    for (i = 1; i <= 2500; i++) {
        offset = int(rand() ^ 4 * 1500) * 65536 + (rand() < 0.3 ? 8192 : 0)
        bytes = rand() < 0.6 ? 65536 : 4096 + int(rand() * 30) * 4096
        if (i % 100 > 60) { offset = 100000000 - 100000000 % 65536 + i * 65536; bytes = 65536 }
        printf "17,%s,%d,%d,%d\n", rand() < 0.5 ? "R" : "W", offset, bytes, i * 1000
    }
}' >/tmp/made.csv
)";

// The same of a cache and of the advice.
struct Setting {
    const char* name;
    const char* create;
    Words advise;
};

void PrintTo(const Setting& setting, std::ostream* out) {
    *out << setting.name;
}

const Setting kSettings[] = {
    {"BackLru", "--mode back", {"--mode", "back"}},
    {"BackFifo", "--mode back --reclaim fifo", {"--mode", "back", "--policy", "fifo"}},
    {"ThruLru", "--mode thru", {"--mode", "thru"}},
    {"ThruFifo", "--mode thru --reclaim fifo", {"--mode", "thru", "--policy", "fifo"}},
    {"AroundLru", "--mode around", {"--mode", "around"}},
    {"AroundFifo", "--mode around --reclaim fifo", {"--mode", "around", "--policy", "fifo"}},
    {"SmallBlocks", "--mode back --format original", {"--mode", "back", "--block", "4K"}},
    {"StreamsPass", "--mode back --skip-sequential", {"--mode", "back", "--skip-sequential-kb", "1024"}},
};

class Promise : public ::testing::TestWithParam<Setting> {};

TEST_P(Promise, IsKeptCounterForCounter) {
    const PrivateFolder folder;
    const std::string tool = VEMOCACHECTL_PATH;
    const std::string recorded = folder / "recorded";
    const Ran played = RunProgram({VEMO_APPLIANCE_PATH, "--trace", recorded, "sh", "-ec",
                                   kMakeTrace + tool + " create /dev/md3 /dev/vg1/volume_1 --size 32M -q " +
                                       GetParam().create +
                                       " >/dev/null\n" VEMO_APPLIANCE_PATH " replay --json /tmp/made.csv\n"});
    ASSERT_EQ(played.code, 0) << played.err;
    const Json device = played.Json();
    EXPECT_EQ(device["replay"]["requests"], 2500);
    EXPECT_EQ(device["replay"]["wrong_reads"], 0);
    EXPECT_GT(device["replay"]["verified_bytes"].Number(), 1e6);

    Words advise = {tool, "--json", "advise", "trace", recorded, "--exact", "--size", "32M"};
    advise.insert(advise.end(), GetParam().advise.begin(), GetParam().advise.end());
    const Json told = RunProgram(advise).Json()["total"]["counters"];
    ASSERT_TRUE(told.IsObject());
    for (const std::string& name : told.Keys()) {
        // A cache around which writes go has not all of them.
        const Json& counted = device["counters"][name];
        EXPECT_EQ(counted.IsNull() ? 0 : counted.Number(), told[name].Number()) << name;
    }
    EXPECT_GT(device["counters"]["read_hits"].Number(), 100);
    EXPECT_GT(device["counters"]["replacement"].Number(), 100);
    const bool passes = GetParam().name == std::string_view("StreamsPass");
    EXPECT_EQ(device["counters"]["uncached_sequential_reads"].Number() > 100, passes);
}

INSTANTIATE_TEST_SUITE_P(Modes, Promise, testing::ValuesIn(kSettings),
                         [](const auto& instance) { return instance.param.name; });

TEST(Replay, TellsWhatWentWrong) {
    const std::string script =
        std::string(kMakeTrace) + VEMOCACHECTL_PATH +
        " create /dev/md3 /dev/vg1/volume_1 --size 32M -q >/dev/null\n"
        "a=" VEMO_APPLIANCE_PATH
        "\n"
        "echo 17,R,1099511627776,4096,1 >/tmp/far.csv\n"
        "$a replay /tmp/far.csv | grep 'beyond_end 1'\n"
        "$a fault read.vg1/volume_1 fail\n"
        "! $a replay /tmp/made.csv >/tmp/out; grep -v 'failed 0' /tmp/out | grep failed\n"
        "$a fault read.vg1/volume_1 ok\n"
        "! $a replay /tmp/none.csv\n"
        "! $a replay --device /dev/none /tmp/made.csv\n"
        "! $a replay --device /dev/vg1/volume_1 /tmp/made.csv\n"
        "! $a replay --device /dev/mapper/cachedev_9 /tmp/made.csv\n";
    const Ran ran = RunProgram({VEMO_APPLIANCE_PATH, "sh", "-ec", script});
    EXPECT_EQ(ran.code, 0) << ran.out << ran.err;
    EXPECT_THAT(ran.err, HasSubstr("/tmp/none.csv"));
    EXPECT_THAT(ran.err, HasSubstr("/dev/none"));
    EXPECT_EQ(RunProgram({VEMO_APPLIANCE_PATH, "--trace", "/nowhere/trace", "true"}).code, 125);
    // On the machine itself nothing is written to, whatever lies there.
    const Ran outside = RunProgram({VEMO_APPLIANCE_PATH, "replay", "/dev/null"});
    EXPECT_EQ(outside.code, 125);
    EXPECT_THAT(outside.err, HasSubstr("is no cache device of a simulated appliance"));
}

}  // namespace
}  // namespace tests
