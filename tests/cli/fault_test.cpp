// What the tool makes of things that go wrong half-way.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "cli/tool.h"

namespace tests {
namespace {

using ::testing::HasSubstr;

TEST(Fault, OfOneCacheCostsItsOwnRowAlone) {
    CreateCache();
    ASSERT_EQ(Tool({"create", "/dev/md4", "/dev/vg1/volume_2", "--size", "32M", "--mode", "thru"}).code, 0);
    const auto caches = Answer({"list"})["caches"];
    ASSERT_EQ(caches.size(), 2U);
    EXPECT_EQ(caches[0]["state"], "running");
    EXPECT_EQ(caches[0]["read_hit_percent"], 0);
    EXPECT_EQ(caches[1]["ssd"], "/dev/md4");
    EXPECT_EQ(caches[1]["device"], "/dev/mapper/cachedev_1");
    EXPECT_TRUE(caches[1]["read_hit_percent"].IsNull());
    EXPECT_EQ(caches[1]["state"], "running");

    Fault("file.flashcache_stats", "rubbish");
    const auto broken = Answer({"list"})["caches"][0];
    EXPECT_EQ(broken["state"], "unknown");
    EXPECT_EQ(broken["ssd"], "/dev/md3");
    EXPECT_TRUE(broken["cached_percent"].IsNull());
    EXPECT_THAT(broken["problem"], HasSubstr("cannot be read"));
}

TEST(Fault, OfTheConfigurationLeavesRunningCachesListed) {
    CreateCache();
    std::ofstream("/usr/vemo/etc/flashcache.conf", std::ios::app) << "[empty]\n";
    const Ran list = Tool({"list", "--json"});
    EXPECT_EQ(list.code, 0);
    EXPECT_THAT(std::string(list.Json()["remark"]), HasSubstr("the configuration cannot be read"));
    EXPECT_THAT(Tool({"list"}).err, HasSubstr("the configuration cannot be read"));
    EXPECT_EQ(list.Json()["caches"][0]["name"], "cachedev_0");
    EXPECT_EQ(Tool({"config", "list"}).code, 1);
}

TEST(Fault, OfALineOfTheConfigurationIsTold) {
    CreateCache();
    const struct {
        const char* line;
        const char* why;
    } cases[] = {{"[md3", "header without"},
                 {"rubbish", "neither a section"},
                 {"\x01=2", "control characters"},
                 {"[]", "without a name"}};
    const std::string path = "/usr/vemo/etc/flashcache.conf";
    ASSERT_EQ(RunProgram({"cp", path, "/usr/vemo/etc/good"}).code, 0);
    for (const auto& one : cases) {
        std::ofstream(path) << one.line << "\n";
        const Ran list = Tool({"list"});
        EXPECT_THAT(list.err, HasSubstr("damaged at line 1 of")) << one.line;
        EXPECT_THAT(list.err, HasSubstr(one.why)) << one.line;
        const auto row = Answer({"list"});
        EXPECT_THAT(std::string(row["remark"]), HasSubstr("line 1"));
        EXPECT_THAT(row["caches"][0]["problem"], HasSubstr("whether it is configured is not known"));
        EXPECT_EQ(Tool({"status", "md3+volume_1", "--json"}).Json()["error"]["kind"], "configuration");
        EXPECT_EQ(Tool({"create", "/dev/md4", "/dev/vg1/volume_2", "--json"}).Json()["error"]["kind"],
                  "configuration");
    }
    ASSERT_EQ(RunProgram({"cp", "/usr/vemo/etc/good", path}).code, 0);
    EXPECT_TRUE(Answer({"list"})["remark"].IsNull());
}

TEST(Fault, OfAMissingDeviceIsTold) {
    CreateCache();
    ASSERT_EQ(Tool({"unload", "cachedev_0"}).code, 0);
    ASSERT_EQ(RunProgram({"sed", "-i", "s:/dev/md3:/dev/md9:", "/usr/vemo/etc/flashcache.conf"}).code, 0);
    EXPECT_EQ(Answer({"list"})["caches"][0]["problem"], "its SSD is missing");
    EXPECT_THAT(Tool({"load", "md3+volume_1"}).err,
                HasSubstr("the SSD /dev/md9 of the cache md3+volume_1 is not there"));
    EXPECT_EQ(Answer({"config", "remove", "md3+volume_1", "--forget-cache"})["removed"]["ssd"], "/dev/md9");
    EXPECT_THAT(Tool({"list"}).out, HasSubstr("There are no caches."));
}

TEST(Fault, OfACreationIsUndone) {
    for (const auto& [fault, value] : kCreationFaults) {
        Fault(fault, value);
        const Ran ran = Tool({"create", "/dev/md3", "/dev/vg1/volume_1", "--size", "32M"});
        EXPECT_EQ(ran.code, 1);
        EXPECT_THAT(ran.err, HasSubstr("could not be created"));
        EXPECT_TRUE(Answer({"list"})["caches"].empty()) << fault;
        Fault(fault, "ok");
    }
    CreateCache();
}

TEST(Fault, OfOneLoadKeepsNoOtherFromComingUp) {
    CreateCache();
    ASSERT_EQ(Tool({"create", "/dev/md4", "/dev/vg1/volume_2", "--size", "32M"}).code, 0);
    ASSERT_EQ(Tool({"unload", "cachedev_0"}).code, 0);
    ASSERT_EQ(Tool({"unload", "cachedev_1"}).code, 0);
    ASSERT_EQ(Tool({"wipe", "/dev/md3", "--discard-metadata"}).code, 0);
    const Ran ran = Tool({"load", "--all", "--json"});
    EXPECT_EQ(ran.code, 1);
    const auto caches = ran.Json()["caches"];
    EXPECT_THAT(caches[0]["problem"], HasSubstr("shows no cache metadata"));
    EXPECT_EQ(caches[1]["state"], "running");
}

TEST(Fault, OfAToolIsToldWithItsCode) {
    CreateCache();
    ASSERT_EQ(Tool({"unload", "cachedev_0"}).code, 0);
    Fault("tool.flashcache_destroy", "fail");
    const auto error = Tool({"wipe", "/dev/md3", "--discard-metadata", "--json"}).Json()["error"];
    EXPECT_EQ(error["error_slot"]["code"], 0x8100);
    EXPECT_EQ(error["error_slot"]["meaning"], "an external program failed");
    EXPECT_THAT(error["error_slot"]["file"], HasSubstr("flashcache_destroy"));
    Fault("tool.flashcache_destroy", "ok");

    ASSERT_EQ(Tool({"load", "md3+volume_1"}).code, 0);
    Fault("remove", "busy");
    EXPECT_THAT(Tool({"unload", "cachedev_0"}).err,
                HasSubstr("could not be unloaded in order; it is still up"));
    Fault("remove", "ok");
    EXPECT_EQ(Tool({"unload", "cachedev_0"}).code, 0);
}

}  // namespace
}  // namespace tests
