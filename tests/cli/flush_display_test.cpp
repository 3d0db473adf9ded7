// What a flush shows while it runs, and that each write mode has an answer to flush and delete.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cli/tool.h"

namespace tests {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

TEST(FlushDisplay, LeavesFactsOutRatherThanCutThem) {
    CreateDirtyCache();
    struct {
        unsigned short columns;
        const char* shown;
        const char* leftOut;
    } const cases[] = {{74, "%  20 blocks (1.2 MiB) left", "left, "},
                       {45, "md3+volume_1   0%  20 blocks (1.2 MiB) left", "["},
                       {24, "md3+volume_1   0%", "20 b"}};
    for (const auto& one : cases) {
        // Ctrl-\ ends it at once, as if it were killed.
        const std::string out = ToolOnTerminal({"flush", "cachedev_0"}, one.shown, "\x1c", one.columns).out;
        const auto shown = out.find(one.shown);
        ASSERT_NE(shown, std::string::npos);
        const auto begin = out.rfind('\r', shown) + 1;
        const std::string line = out.substr(begin, out.find("\x1b[K", begin) - begin);
        EXPECT_LT(line.size(), one.columns);
        EXPECT_THAT(line, Not(HasSubstr(one.leftOut)));
    }
}

TEST(FlushDisplay, SaysTheEndOnce) {
    CreateCache();
    const std::string err = Tool({"flush", "cachedev_0"}).err;
    const auto first = err.find("100%");
    EXPECT_NE(first, std::string::npos);
    EXPECT_EQ(err.find("100%", first + 1), std::string::npos) << err;
}

TEST(WriteMode, WithoutDirtyBlocksNeedsNoFlushAndIsWipedByADeletion) {
    for (const auto* mode : {"thru", "around"}) {
        ASSERT_EQ(Tool({"create", "/dev/md3", "/dev/vg1/volume_1", "--size", "32M", "--mode", mode}).code, 0);
        const auto flush = Answer({"flush", "cachedev_0"})["flush"];
        EXPECT_EQ(flush["result"], "done");
        EXPECT_EQ(flush["handle_state"], "normal");
        EXPECT_EQ(Answer({"delete", "cachedev_0"})["deleted"]["ssd_wiped"], true);
        EXPECT_THAT(Tool({"wipe", "/dev/md3", "--discard-metadata"}).err, HasSubstr("no cache metadata"));
    }
}

TEST(WriteMode, LeftOnTheSsdIsTold) {
    ASSERT_EQ(Tool({"create", "/dev/md3", "/dev/vg1/volume_1", "--size", "32M", "--mode", "around"}).code, 0);
    Fault("tool.flashcache_destroy", "fail");
    const Ran ran = Tool({"delete", "cachedev_0", "--json"});
    EXPECT_EQ(ran.Json()["deleted"]["ssd_wiped"], false);
    EXPECT_THAT(ran.err, HasSubstr("vemocachectl wipe /dev/md3"));
}

}  // namespace
}  // namespace tests
