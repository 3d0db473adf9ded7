// Work that was killed or had no room half-way: it is seen, and one command finishes or undoes it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>

#include "cli/tool.h"

namespace tests {
namespace {

using ::testing::HasSubstr;

Json TheCache() {
    return Answer({"list"})["caches"][0];
}

// Kills a verb while one of the appliance's programs that it runs hangs.
void KillAt(const Words& verb, const std::string& fault, const char* program) {
    Fault(fault, "hang");
    {
        RunningTool tool(verb);
        while (RunProgram({"pgrep", "-f", program}).code != 0) {
        }
    }
    Fault(fault, "ok");
    EXPECT_EQ(RunProgram({"pkill", "-KILL", "-f", program}).code, 0);
}

TEST(Unfinished, LoadingIsFinishedByTheNext) {
    ASSERT_EQ(Tool({"create", "/dev/md3", "/dev/vg1/volume_1", "--size", "64M", "--reclaim", "fifo",
                    "--dirty-threshold", "33"})
                  .code,
              0);
    ASSERT_EQ(Tool({"unload", "cachedev_0"}).code, 0);
    KillAt({"load", "md3+volume_1"}, "tool.flashcache_load", "flashcache_load /dev/md3");
    // The tool that outlived the killed one comes to its end.
    ASSERT_EQ(RunProgram({"flashcache_load", "/dev/md3", "cachedev_0", "/dev/vg1/volume_1"}).code, 0);
    EXPECT_EQ(TheCache()["state"], "running");
    EXPECT_THAT(TheCache()["problem"],
                HasSubstr("dirty_thresh_pct is 20, configured 33, fast_remove is 0, configured 1"));
    EXPECT_EQ(Tool({"load", "md3+volume_1"}).code, 0);
    EXPECT_TRUE(TheCache()["problem"].IsNull());
    EXPECT_EQ(Answer({"config", "list"})["entries"][0]["loaded"], true);
}

TEST(Unfinished, CreationIsFinishedWhereTheCacheIsUp) {
    KillAt({"create", "/dev/md3", "/dev/vg1/volume_1", "--size", "64M"}, "tool.flashcache_create",
           "flashcache_create");
    ASSERT_EQ(RunProgram({"flashcache_create", "-n", "-s", "65536k", "-p", "back", "cachedev_0", "/dev/md3",
                          "/dev/vg1/volume_1"})
                  .code,
              0);
    EXPECT_THAT(TheCache()["problem"], HasSubstr("\"vemocachectl load md3+volume_1\" finishes it"));
    EXPECT_EQ(Tool({"load", "md3+volume_1"}).code, 0);
    EXPECT_TRUE(TheCache()["problem"].IsNull());
}

TEST(Unfinished, CreationIsUndoneWhereNothingIsUp) {
    KillAt({"create", "/dev/md3", "/dev/vg1/volume_1", "--size", "64M"}, "tool.flashcache_create",
           "flashcache_create");
    EXPECT_THAT(TheCache()["problem"], HasSubstr("config remove md3+volume_1 --forget-cache\" undoes it"));
    EXPECT_EQ(Tool({"config", "remove", "md3+volume_1", "--forget-cache"}).code, 0);
    CreateCache();
}

// A place that takes no more: a file system of its own with one page and no room for another file.
class FullPlace {
  public:
    explicit FullPlace(std::string path) : path_(std::move(path)) {
        EXPECT_EQ(RunProgram({"mount", "-t", "tmpfs", "-o", "size=4k,nr_inodes=1", "none", path_}).code, 0);
    }
    ~FullPlace() { EXPECT_EQ(RunProgram({"umount", path_}).code, 0); }
    FullPlace(const FullPlace&) = delete;
    FullPlace& operator=(const FullPlace&) = delete;

  private:
    std::string path_;
};

TEST(FullPlace, OfTheCopyStopsFlushesButNoLoading) {
    if (ToolLiesBelow("/tmp")) {
        GTEST_SKIP() << "a full /tmp would hide the tool";
    }
    CreateCache();
    {
        const FullPlace full("/tmp");
        EXPECT_THAT(Tool({"flush", "cachedev_0"}).err, HasSubstr("is not flushed and runs on"));
        const Ran unload = Tool({"unload", "cachedev_0"});
        EXPECT_EQ(unload.code, 1);
        EXPECT_THAT(unload.err, HasSubstr("Unloaded md3+volume_1."));
        const Ran load = Tool({"load", "--all", "--json"});
        EXPECT_EQ(load.code, 1);
        EXPECT_EQ(load.Json()["caches"][0]["state"], "running");
        EXPECT_THAT(load.Json()["caches"][0]["problem"], HasSubstr("but its copy in /tmp is not"));
        const Ran create = Tool({"create", "/dev/md4", "/dev/vg1/volume_2", "--size", "32M"});
        EXPECT_EQ(create.code, 1);
        EXPECT_THAT(create.err, HasSubstr("nothing of it is left"));
        EXPECT_EQ(Answer({"list"})["caches"].size(), 1U);
    }
    EXPECT_EQ(Tool({"load", "--all"}).code, 0);
    EXPECT_TRUE(TheCache()["problem"].IsNull());
}

TEST(FullPlace, OfTheLocksChangesNothing) {
    CreateCache();
    const FullPlace full("/run/lock");
    for (const Words& verb : {Words{"unload", "cachedev_0"}, Words{"state", "set", "cachedev_0", "flush"},
                              Words{"delete", "cachedev_0"}, Words{"flush", "cachedev_0"}}) {
        const Ran ran = Tool(verb);
        EXPECT_EQ(ran.code, 1);
        EXPECT_THAT(ran.err, ::testing::AnyOf(HasSubstr("df -h /run/lock"), HasSubstr("is not known")));
        EXPECT_EQ(TheCache()["state"], "running");
    }
}

TEST(ReadOnlyConfig, IsToldAfterWhatBecameOfTheCache) {
    CreateCache();
    ASSERT_EQ(RunProgram({"mount", "--bind", "/usr/vemo/etc", "/usr/vemo/etc"}).code, 0);
    ASSERT_EQ(RunProgram({"mount", "-o", "remount,ro,bind", "/usr/vemo/etc"}).code, 0);
    EXPECT_THAT(Tool({"create", "/dev/md4", "/dev/vg1/volume_2", "--size", "32M"}).err,
                HasSubstr("no cache was made"));
    EXPECT_THAT(Tool({"flush", "cachedev_0"}).err, HasSubstr("the cache runs on"));
    const Ran unload = Tool({"unload", "cachedev_0"});
    EXPECT_EQ(unload.code, 1);
    EXPECT_THAT(unload.err, HasSubstr("Unloaded md3+volume_1."));
    EXPECT_THAT(unload.err, HasSubstr("could not be written"));
    EXPECT_EQ(RunProgram({"umount", "/usr/vemo/etc"}).code, 0);
    EXPECT_EQ(Tool({"load", "--all"}).code, 0);
}

}  // namespace
}  // namespace tests
