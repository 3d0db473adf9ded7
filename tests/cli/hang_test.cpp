// Tools that do not come to an end, and the admin who does not wait for them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>

#include "cli/tool.h"

namespace tests {
namespace {

using ::testing::HasSubstr;

struct Hang {
    const char* fault;
    std::string command;  // of the tool that hangs, or how it begins
    Words words;
};

std::string ToolOf(const Hang& hang) {
    const std::string path = hang.command.substr(0, hang.command.find(' '));
    return path.substr(path.rfind('/') + 1);
}

// Runs the verb until its tool hangs, then signals twice; what the verb says.
std::string EndByForce(const Hang& hang, int signal) {
    Fault(hang.fault, "hang");
    RunningTool verb(hang.words, true);
    while (!Runs(hang.command)) {
    }
    verb.Signal(signal);
    std::string said = verb.NextLine() + "\n";
    while (said.starts_with("note: the cache will have ")) {  // a creation tells what it will make
        said = verb.NextLine() + "\n";
    }
    EXPECT_THAT(said, HasSubstr("waiting for " + ToolOf(hang) + " (process "));
    EXPECT_THAT(said, HasSubstr("press Ctrl-C again"));
    EXPECT_TRUE(Runs(hang.command));
    verb.Signal(signal);
    for (std::string line = verb.NextLine(); !line.empty(); line = verb.NextLine()) {
        said += line + "\n";
    }
    EXPECT_EQ(verb.Wait(), 1) << said;
    EXPECT_FALSE(Runs(hang.command)) << said;
    Fault(hang.fault, "ok");
    return said;
}

TEST(Hang, OfACreationIsEndedAndUndone) {
    const Hang hang{"tool.flashcache_create",
                    "/usr/bin/flashcache_create",
                    {"create", "/dev/md3", "/dev/vg1/volume_1", "--size", "64M"}};
    for (const int signal : {SIGINT, SIGTERM}) {
        const std::string said = EndByForce(hang, signal);
        EXPECT_THAT(said, HasSubstr("could not be created; nothing of it is left"));
        EXPECT_THAT(said, HasSubstr("did not end by itself and was ended on request"));
        EXPECT_TRUE(Answer({"list"})["caches"].empty());
    }
    CreateCache();
}

TEST(Hang, OfALaterStepIsEndedAndTold) {
    CreateCache();
    ASSERT_EQ(RunProgram({VEMO_APPLIANCE_PATH, "grow", "/dev/vg1/volume_1", "3G"}).code, 0);
    const auto expect = [](const Hang& hang, const char* text) {
        EXPECT_THAT(EndByForce(hang, SIGINT), HasSubstr(text));
    };
    const Hang remove{"tool.dmsetup.remove", "/sbin/dmsetup remove", {"unload", "cachedev_0"}};
    expect(remove, "could not be unloaded in order; it is still up");
    expect({remove.fault, remove.command, {"delete", "cachedev_0", "--discard-dirty"}},
           "its device is still up");
    expect({"tool.flashcache_expand", "/usr/bin/flashcache_expand", {"expand", "cachedev_0"}},
           "could not be expanded; its device has 1.0 GiB");
    ASSERT_EQ(Tool({"unload", "cachedev_0"}).code, 0);
    expect({"tool.flashcache_load", "/usr/bin/flashcache_load", {"load", "md3+volume_1"}},
           "the cache md3+volume_1 could not be loaded");
    EXPECT_EQ(Answer({"list"})["caches"][0]["state"], "unloaded");
    expect({"tool.flashcache_destroy",
            "/usr/bin/flashcache_destroy",
            {"wipe", "/dev/md3", "--discard-metadata"}},
           "the SSD /dev/md3 could not be wiped");
    EXPECT_EQ(Tool({"load", "md3+volume_1"}).code, 0);
}

}  // namespace
}  // namespace tests
