// What the tool answers: the facts, the same in text and JSON, under names that stay.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cli/tool.h"

namespace tests {
namespace {

using ::testing::ElementsAreArray;
using ::testing::HasSubstr;

Words Keys(const Json& object) {
    Words keys = object.Keys();
    std::sort(keys.begin(), keys.end());
    return keys;
}

Words Sorted(Words words) {
    std::sort(words.begin(), words.end());
    return words;
}

const Words kSummary = {"name",
                        "state",
                        "device",
                        "ssd",
                        "volume",
                        "write_mode",
                        "size_bytes",
                        "cached_percent",
                        "dirty_bytes",
                        "read_hit_percent",
                        "write_hit_percent",
                        "problem"};

TEST(Answer, TellsWhatWasWrittenAndRead) {
    CreateCache();
    ASSERT_EQ(RunProgram({"dd", "if=/dev/urandom", "of=/dev/mapper/cachedev_0", "bs=64k", "count=10",
                          "oflag=direct"})
                  .code,
              0);
    ASSERT_EQ(
        RunProgram({"dd", "if=/dev/mapper/cachedev_0", "of=/dev/null", "bs=64k", "count=4", "iflag=direct"})
            .code,
        0);

    const auto cache = Answer({"status", "cachedev_0"})["caches"][0];
    EXPECT_EQ(cache["state"], "running");
    EXPECT_EQ(cache["ssd"], "/dev/md3");
    EXPECT_EQ(cache["volume"], "/dev/vg1/volume_1");
    EXPECT_EQ(cache["mount_path"], "/volume1");
    EXPECT_EQ(cache["writes"], 10);
    EXPECT_EQ(cache["reads"], 4);
    EXPECT_EQ(cache["read_hit_percent"], 100);
    EXPECT_EQ(cache["cached_blocks"], 10);
    EXPECT_EQ(cache["dirty_bytes"], 10 * 65536);
    EXPECT_EQ(cache["size_bytes"], 64 << 20);
    EXPECT_EQ(cache["handle_state"], "normal");
    EXPECT_EQ(cache["fallow_delay_seconds"], 900);
    EXPECT_TRUE(cache["problem"].IsNull());
}

TEST(Answer, HasTheSameFactsInTextAndJson) {
    CreateCache();
    const Ran text = Tool({"status", "cachedev_0"});
    const auto cache = Answer({"status", "cachedev_0"})["caches"][0];
    const auto lines = std::count_if(text.out.begin(), text.out.end(), [](char c) { return c == '\n'; });
    constexpr int kBlankLines = 4;
    constexpr int kNoProblem = 1;  // said in text only when there is one
    EXPECT_EQ(lines, static_cast<long>(cache.size()) + kBlankLines - kNoProblem) << text.out;
    for (const auto& value : cache) {
        if (value.IsText()) {
            EXPECT_THAT(text.out, HasSubstr(std::string(value)));
        }
    }
}

TEST(Answer, KeepsItsNames) {
    CreateCache();
    const auto list = Answer({"list"});
    EXPECT_EQ(list["format_version"], 2);
    EXPECT_THAT(Keys(list["caches"][0]), ElementsAreArray(Sorted(kSummary)));
    EXPECT_THAT(Keys(Answer({"load", "cachedev_0"})["cache"]), ElementsAreArray(Sorted(kSummary)));
    EXPECT_THAT(Keys(Answer({"knob", "get", "cachedev_0"})["knobs"][0]),
                ElementsAreArray(Words{"meaning", "name", "value"}));
    EXPECT_THAT(Keys(Answer({"modules"})["modules"][0]), ElementsAreArray(Words{"loaded", "name"}));
    EXPECT_THAT(Keys(Answer({"config", "list"})["entries"][0]),
                ElementsAreArray(Sorted({"name", "ssd", "volume", "mount_path", "write_mode", "size_bytes",
                                         "format", "loaded", "flush_state"})));
    EXPECT_THAT(Keys(Answer({"flush", "--status", "cachedev_0"})["flush"]),
                ElementsAreArray(Sorted({"name", "result", "flush_state", "running", "handle_state",
                                         "percent", "dirty_blocks", "dirty_bytes", "bytes_per_second",
                                         "seconds_left", "write_errors", "stalled"})));
    const auto failure = Tool({"unload", "nothing", "--json"}).Json();
    EXPECT_EQ(failure["format_version"], 2);
    EXPECT_THAT(Keys(failure["error"]),
                ElementsAreArray(Words{"advice", "error_slot", "kind", "message", "reason"}));
}

TEST(Answer, TellsTheWriteModeOfACacheWhetherItRunsOrNot) {
    for (const auto* mode : {"thru", "back", "around", "back_bypass", "back_crash"}) {
        ASSERT_EQ(Tool({"create", "/dev/md3", "/dev/vg1/volume_1", "--size", "32M", "--mode", mode}).code, 0);
        for (const auto* verb : {"load", "unload"}) {
            ASSERT_EQ(Tool({verb, "md3+volume_1"}).code, 0);
            EXPECT_EQ(Answer({"list"})["caches"][0]["write_mode"], mode) << verb;
            EXPECT_EQ(Answer({"status"})["caches"][0]["write_mode"], mode) << verb;
            EXPECT_EQ(Answer({"config", "list"})["entries"][0]["write_mode"], mode) << verb;
            EXPECT_EQ(Answer({"probe", "/dev/md3"})["probe"]["write_mode"], mode) << verb;
        }
        ASSERT_EQ(Tool({"load", "md3+volume_1"}).code, 0);
        ASSERT_EQ(Tool({"delete", "md3+volume_1"}).code, 0);
    }
}

TEST(Answer, NamesACacheInEveryWay) {
    CreateCache();
    const std::string uuid(Answer({"config", "show", "md3+volume_1"})["entry"]["ssd_uuid"]);
    EXPECT_EQ(uuid.size(), 36U);
    for (const auto& name : {"md3+volume_1", "cachedev_0", "/dev/mapper/cachedev_0", "/dev/md3",
                             "/dev/vg1/volume_1", "/volume1", uuid.c_str()}) {
        EXPECT_EQ(Answer({"state", "get", name})["state"]["name"], "md3+volume_1") << name;
    }
}

TEST(Answer, WritesTheEntryThatWasAskedFor) {
    ASSERT_EQ(Tool({"create", "/dev/md3", "/dev/vg1/volume_1", "--size", "32M", "--mode", "around",
                    "--reclaim", "fifo", "--format", "original", "--skip-sequential", "--name", "fast one",
                    "--mount", "/volume9", "--device", "/dev/mapper/cachedev_7"})
                  .code,
              0);
    const auto entry = Answer({"config", "show", "fast one"})["entry"];
    EXPECT_EQ(entry["write_mode"], "around");
    EXPECT_EQ(entry["reclaim_policy"], "fifo");
    EXPECT_EQ(entry["format"], "original");
    EXPECT_EQ(entry["skip_sequential"], true);
    EXPECT_EQ(entry["mount_path"], "/volume9");
    EXPECT_EQ(entry["size_bytes"], 32 << 20);
    EXPECT_EQ(entry["loaded"], true);
    EXPECT_EQ(entry["creation_unfinished"], false);
    EXPECT_EQ(Answer({"status", "fast one"})["caches"][0]["device"], "/dev/mapper/cachedev_7");
    // The same lies in the copy that the library's queries read.
    EXPECT_EQ(RunProgram({"cmp", "/usr/vemo/etc/flashcache.conf", "/tmp/flashcache.conf"}).code, 0);
}

TEST(Answer, SetsAKnobAndReadsItBack) {
    CreateCache();
    EXPECT_EQ(Answer({"knob", "set", "cachedev_0", "dirty_thresh_pct", "40"})["knob"]["value"], 40);
    EXPECT_EQ(Answer({"knob", "get", "cachedev_0", "dirty_thresh_pct"})["knobs"][0]["value"], 40);
    EXPECT_EQ(Answer({"knob", "get", "cachedev_0"})["knobs"].size(), 16U);
}

TEST(Answer, ShowsTheLibrarysLogOnlyWhenAsked) {
    EXPECT_EQ(Tool({"modules", "--load"}).err, "");
    CreateCache();
    EXPECT_THAT(Tool({"-v", "unload", "cachedev_0"}).err,
                HasSubstr("Unload Cache: /sbin/dmsetup remove --retry cachedev_0"));
}

}  // namespace
}  // namespace tests
