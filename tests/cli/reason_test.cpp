// Why a step failed: in the words of the tool that did.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cli/tool.h"

namespace tests {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

struct Step {
    const char* fault;
    const char* value;
    Words words;
    const char* reason;
    bool hasSlot;
};

void ExpectReasons(const std::vector<Step>& steps) {
    for (const auto& step : steps) {
        Fault(step.fault, step.value);
        Words words = step.words;
        words.emplace_back("--json");
        const Ran ran = Tool(words);
        Fault(step.fault, "ok");
        EXPECT_EQ(ran.code, 1) << step.fault;
        const auto error = ran.Json()["error"];
        EXPECT_THAT(error["reason"], HasSubstr(step.reason)) << step.fault;
        EXPECT_EQ(error["error_slot"].IsObject(), step.hasSlot) << error;
    }
}

TEST(Reason, OfACreationIsTheToolsNotThatOfAnEarlierStep) {
    const Words create = {"create", "/dev/md3", "/dev/vg1/volume_1", "--size", "64M"};
    ExpectReasons({
        {"tool.insmod", "fail", create, "the library says: Insert Module failed", false},
        {"tool.flashcache_create", "fail", create, "flashcache_create: simulated failure; -v shows", false},
        {"tool.flashcache_create", "rubbish", create, "%s%n", false},
        {"tool.flashcache_create", "flood", create, "flashcache_create: xxxx", false},
        {"knob.reclaim_policy", "reject", create, "Fail to set reclaim_policy of cache [/dev/md3]", true},
    });
    Fault("tool.flashcache_create", "fail");
    EXPECT_THAT(Tool(create).err, Not(HasSubstr("an external program failed")));
}

TEST(Reason, OfALaterStepIsTheToolsOwn) {
    CreateCache();
    ASSERT_EQ(RunProgram({VEMO_APPLIANCE_PATH, "grow", "/dev/vg1/volume_1", "3G"}).code, 0);
    const char* busy = "dmsetup: device-mapper: remove ioctl on cachedev_0 failed: Device or resource busy";
    ExpectReasons({
        {"tool.flashcache_expand", "fail", {"expand", "cachedev_0"}, "flashcache_expand: simulated", false},
        {"remove", "busy", {"unload", "cachedev_0"}, busy, false},
        {"remove", "busy", {"delete", "cachedev_0"}, busy, false},
    });
    ASSERT_EQ(Tool({"unload", "cachedev_0"}).code, 0);
    // Of these two the platform keeps no words.
    ExpectReasons({
        {"tool.flashcache_load", "failx1", {"load", "md3+volume_1"}, "says: Load cache failed", false},
        {"tool.flashcache_load", "fail", {"load", "md3+volume_1"}, "flashcache_load: simulated", false},
        {"tool.flashcache_destroy",
         "fail:7",
         {"wipe", "/dev/md3", "--discard-metadata"},
         "says: failed to destroy cache [/dev/md3], errno=",
         true},
    });
}

}  // namespace
}  // namespace tests
