// What the tool refuses, before anything is changed.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "cli/tool.h"

namespace tests {
namespace {

using ::testing::HasSubstr;

struct Refusal {
    Words words;
    std::string reason;
};

TEST(Refusal, ToldAsWrongUsage) {
    const std::vector<Refusal> cases = {
        {{}, "subcommand is required"},
        {{"frobnicate"}, "no verb frobnicate"},
        {{"flsh"}, "did you mean flush?"},
        {{"knob", "gte"}, "no verb knob gte; did you mean get?"},
        {{"create", "/dev/md3"}, "VOLUME is required"},
        {{"create", "/dev/md3", "/dev/vg1/volume_1", "--size", "-5"}, "not a size"},
        {{"create", "/dev/md3", "/dev/vg1/volume_1", "--size", "99999999999T"}, "not a size"},
        {{"create", "/dev/md3", "/dev/vg1/volume_1", "--mode", "3"}, "not in"},
        {{"create", "/dev/md3", "/dev/vg1/volume_1", "--name", "a]\nb"}, "a name has no"},
        {{"create", "/dev/md3", "/dev/vg1/volume_1", "--device", "/dev/mapper/vg1-lv"}, "a cache device is"},
        {{"knob", "set", "cachedev_0", "no_knob", "1"}, "not in"},
        {{"knob", "set", "cachedev_0", "do_sync", "many"}, "VALUE"},
        {{"load"}, "required"},
        {{"load", "cachedev_0", "--all"}, "excludes"},
        {{"flush", "cachedev_0", "--follow"}, "requires"},
    };
    for (const auto& one : cases) {
        const Ran ran = Tool(one.words);
        EXPECT_EQ(ran.code, 2) << ran.err;
        EXPECT_EQ(ran.out, "");
        EXPECT_THAT(ran.err, HasSubstr(one.reason));
    }
    EXPECT_THAT(Tool({"fly", "--json"}).Json()["error"]["reason"], "there is no verb fly");
}

TEST(Refusal, ToldBeforeACreation) {
    ASSERT_EQ(RunProgram({"mkfs.ext4", "-q", "/dev/vg1/volume_2"}).code, 0);
    ASSERT_EQ(RunProgram({"mount", "/dev/vg1/volume_2", "/volume1"}).code, 0);
    const std::vector<Refusal> cases = {
        {{"/dev/md99", "/dev/vg1/volume_1"}, "no such device exists"},
        {{"/dev/null", "/dev/vg1/volume_1"}, "not a block device"},
        {{"md3", "/dev/vg1/volume_1"}, "path under /dev/"},
        {{"/dev/md3", "/dev/md3"}, "both are /dev/md3"},
        {{"/dev/md3", "/dev/vg1/volume_2"}, "mounted on /volume1"},
        {{"/dev/md3", "/dev/vg1/volume_1", "--size", "100T"}, "has 1.0 GiB"},
        {{"/dev/md3", "/dev/vg1/volume_1", "--size", "5"}, ""},
    };
    for (const auto& one : cases) {
        Words words = one.words;
        words.insert(words.begin(), "create");
        const Ran ran = Tool(words);
        EXPECT_EQ(ran.code, 1);
        EXPECT_THAT(ran.err, HasSubstr(one.reason));
    }
    EXPECT_TRUE(Answer({"list"})["caches"].empty());
    ASSERT_EQ(RunProgram({"umount", "/volume1"}).code, 0);
}

TEST(Refusal, OfDevicesThatBelongToAnotherCache) {
    CreateCache();
    for (const Words& pair :
         {Words{"/dev/md3", "/dev/vg1/volume_2"}, Words{"/dev/md4", "/dev/vg1/volume_1"}}) {
        EXPECT_THAT(Tool({"create", pair[0], pair[1]}).err, HasSubstr("belongs to the cache md3+volume_1"));
    }
    EXPECT_THAT(Tool({"wipe", "/dev/md3", "--discard-metadata"}).err,
                HasSubstr("runs on it as /dev/mapper/cachedev_0"));
    EXPECT_THAT(Tool({"config", "remove", "/dev/md3", "--forget-cache"}).err, HasSubstr("is running"));
}

TEST(Refusal, OfLossWithoutConsent) {
    ASSERT_EQ(RunProgram({"mkfs.ext4", "-q", "/dev/md4"}).code, 0);
    CreateCache();
    Fault("cleaning", "pause");
    ASSERT_EQ(RunProgram(
                  {"dd", "if=/dev/urandom", "of=/dev/mapper/cachedev_0", "bs=64K", "count=5", "oflag=direct"})
                  .code,
              0);
    const std::vector<Refusal> running = {
        {{"create", "/dev/md4", "/dev/vg1/volume_2"}, "--discard-content"},
        {{"delete", "cachedev_0", "--fast"}, "drop 5 dirty blocks (320.0 KiB)"},
        {{"attribute", "set", "cachedev_0", "force-remove"}, "--ignore-write-errors"},
    };
    const std::vector<Refusal> unloaded = {
        {{"wipe", "/dev/md3"}, "--discard-metadata"},
        {{"config", "remove", "md3+volume_1"}, "--forget-cache"},
    };
    const auto refused = [](const std::vector<Refusal>& cases) {
        for (const auto& one : cases) {
            const Ran ran = Tool(one.words);
            EXPECT_EQ(ran.code, 1);
            EXPECT_THAT(ran.err, HasSubstr(one.reason));
            EXPECT_THAT(ran.err, HasSubstr("no terminal to ask on"));
        }
    };
    refused(running);
    ASSERT_EQ(Tool({"unload", "cachedev_0"}).code, 0);
    refused(unloaded);
    EXPECT_EQ(Tool({"load", "md3+volume_1"}).code, 0);
    EXPECT_EQ(Answer({"status", "md3+volume_1"})["caches"][0]["dirty_blocks"], 5);
}

TEST(Refusal, LiftedByAYesOnTheTerminalAlone) {
    CreateCache();
    ASSERT_EQ(Tool({"unload", "cachedev_0"}).code, 0);
    const Ran no = ToolOnTerminal({"wipe", "/dev/md3"}, "go on: ", "y\n");
    EXPECT_EQ(no.code, 1);
    EXPECT_THAT(no.out, HasSubstr("destroy the cache md3+volume_1 on /dev/md3"));
    EXPECT_THAT(no.out, HasSubstr("nothing was changed"));
    ASSERT_EQ(Tool({"load", "--all"}).code, 0);
    ASSERT_EQ(Tool({"unload", "cachedev_0"}).code, 0);
    EXPECT_EQ(ToolOnTerminal({"wipe", "/dev/md3"}, "go on: ", "yes\n").code, 0);
    const auto failure = Tool({"load", "md3+volume_1", "--json"});
    EXPECT_EQ(failure.code, 1);
    EXPECT_EQ(failure.err, "");
    EXPECT_THAT(failure.Json()["error"]["reason"],
                HasSubstr("no cache metadata; the library says: flashcache_load: no cache lies on /dev/md3"));
}

TEST(Refusal, OfADeviceInUse) {
    CreateCache();
    ASSERT_EQ(RunProgram({"mkfs.ext4", "-q", "/dev/mapper/cachedev_0"}).code, 0);
    ASSERT_EQ(RunProgram({"mount", "/dev/mapper/cachedev_0", "/volume1"}).code, 0);
    for (const auto* verb : {"unload", "delete"}) {
        EXPECT_THAT(Tool({verb, "cachedev_0"}).err, HasSubstr("mounted on /volume1"));
    }
    ASSERT_EQ(RunProgram({"umount", "/volume1"}).code, 0);
    EXPECT_EQ(Tool({"unload", "cachedev_0"}).code, 0);
    EXPECT_EQ(Tool({"unload", "cachedev_0"}).code, 1);
}

TEST(Refusal, OfAnSsdThatOnlyBeginsBlank) {
    for (const char* place : {"100K", "511M", "1015M"}) {
        const std::string at = std::string("seek=") + place;
        ASSERT_EQ(RunProgram(
                      {"dd", "if=/dev/urandom", "of=/dev/md3", "bs=64K", "count=128", "oflag=seek_bytes", at})
                      .code,
                  0);
        const Ran ran = Tool({"create", "/dev/md3", "/dev/vg1/volume_1", "--size", "32M", "--json"});
        EXPECT_EQ(ran.code, 1) << place;
        EXPECT_THAT(ran.err + ran.out, HasSubstr("--discard-content")) << place;
        ASSERT_EQ(
            RunProgram({"dd", "if=/dev/zero", "of=/dev/md3", "bs=64K", "count=128", "oflag=seek_bytes", at})
                .code,
            0);
    }
    EXPECT_EQ(Tool({"create", "/dev/md3", "/dev/vg1/volume_1", "--size", "32M"}).code, 0);
}

TEST(Refusal, OfLentRights) {
    const std::string lent = "/usr/bin/lent";
    ASSERT_EQ(RunProgram({"install", "-m", "4755", VEMOCACHECTL_PATH, lent}).code, 0);
    const Ran ran = RunProgram({"setpriv", "--reuid=65534", "--clear-groups", lent, "list"});
    EXPECT_EQ(ran.code, 1);
    EXPECT_THAT(ran.err, HasSubstr("does not run with lent rights"));
}

TEST(Refusal, TellsTheLimits) {
    EXPECT_THAT(Tool({"create", "/dev/md3", "/dev/vg1/volume_1", "--size", "16K"}).err,
                HasSubstr("blocks of 64.0 KiB"));
    EXPECT_THAT(Tool({"create", "/dev/md3", "/dev/vg1/volume_1", "--size", "2T"}).err,
                HasSubstr("has 1.0 GiB"));
    CreateCache();
    for (const auto& [knob, value] :
         {std::pair{"dirty_thresh_pct", "101"}, {"cache_all", "2"}, {"fallow_delay", "-1"}}) {
        const Ran ran = Tool({"knob", "set", "cachedev_0", knob, "--", value});
        EXPECT_EQ(ran.code, 2) << knob;
        EXPECT_THAT(ran.err, HasSubstr("name a value from 0 to")) << knob;
    }
}

TEST(Refusal, OfALockFileThatSomebodyElseLaid) {
    CreateCache();
    const std::string lock = "/run/lock/vemocachectl.lock";
    std::ofstream("/run/lock/victim") << "content";
    const std::vector<Words> plants = {
        {"ln", "-sf", "/run/lock/victim", lock},
        {"ln", "-sf", "/run/lock/nothing", lock},
        {"ln", "-f", "/run/lock/victim", lock},
        {"sh", "-c", "rm " + lock + "; mkfifo " + lock},
        {"sh", "-c", "rm " + lock + "; touch " + lock + "; chown 65534 " + lock}};
    for (const auto& plant : plants) {
        ASSERT_EQ(RunProgram(plant).code, 0);
        const Ran ran = Tool({"unload", "cachedev_0"});
        EXPECT_EQ(ran.code, 1) << plant.back();
        EXPECT_THAT(ran.err, HasSubstr("the lock file " + lock)) << plant.back();
    }
    EXPECT_EQ(RunProgram({"cat", "/run/lock/victim"}).out, "content");
    EXPECT_NE(RunProgram({"ls", "/run/lock/nothing"}).code, 0);
    ASSERT_EQ(RunProgram({"rm", lock}).code, 0);
    EXPECT_EQ(Tool({"unload", "cachedev_0"}).code, 0);
}

}  // namespace
}  // namespace tests
