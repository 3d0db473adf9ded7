// What a failure advises is a command that a shell runs as it stands, and that helps.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cli/tool.h"

namespace tests {
namespace {

// A shell that finds the tool by its name.
Ran Paste(const std::string& command) {
    const std::string tool = VEMOCACHECTL_PATH;
    return RunProgram(
        {"/bin/sh", "-c", "PATH=\"" + tool.substr(0, tool.rfind('/')) + ":$PATH\"\n" + command});
}

struct Case {
    Words words;
    std::string advice;
};

// Each fails, its advice is pasted and works.
void ExpectAdvice(const std::vector<Case>& cases) {
    for (const auto& [words, advice] : cases) {
        Words asJson = words;
        asJson.emplace_back("--json");
        const Ran failed = Tool(asJson);
        EXPECT_NE(failed.code, 0) << advice;
        EXPECT_EQ(failed.Json()["error"]["advice"], advice);
        const Ran pasted = Paste(advice);
        EXPECT_EQ(pasted.code, 0) << advice << "\n" << pasted.err;
    }
}

TEST(Advice, IsACommandToPaste) {
    CreateCache();
    ASSERT_EQ(RunProgram({"mkfs.ext4", "-q", "/dev/mapper/cachedev_0"}).code, 0);
    ASSERT_EQ(RunProgram({"mount", "/dev/mapper/cachedev_0", "/volume1"}).code, 0);
    ExpectAdvice({
        {{"fly"}, "vemocachectl --help"},
        {{"knob", "fly"}, "vemocachectl knob --help"},
        {{"knob", "get"}, "vemocachectl knob get --help"},
        {{"status", "nothing"}, "vemocachectl list"},
        {{"create", "/dev/md3", "/dev/vg1/volume_2"}, "vemocachectl status md3+volume_1"},
        {{"create", "/dev/md9", "/dev/vg1/volume_2"}, "lsblk"},
        {{"flush", "--cancel", "cachedev_0"}, "vemocachectl flush --status md3+volume_1"},
        {{"unload", "cachedev_0"}, "umount /volume1"},
        {{"config", "remove", "md3+volume_1", "--forget-cache"}, "vemocachectl unload md3+volume_1"},
        {{"state", "get", "md3+volume_1"}, "vemocachectl load md3+volume_1"},
    });
}

TEST(Advice, ToUnloadWithoutLossWorks) {
    CreateDirtyCache();
    ASSERT_EQ(Tool({"attribute", "set", "cachedev_0", "force-remove", "--ignore-write-errors"}).code, 0);
    ExpectAdvice({{{"unload", "cachedev_0"},
                   "vemocachectl attribute set md3+volume_1 none; vemocachectl unload md3+volume_1"}});
    EXPECT_EQ(Answer({"list"})["caches"][0]["state"], "unloaded");
}

TEST(Advice, ToCreateACacheAnewWorks) {
    ASSERT_EQ(Tool({"create", "/dev/md3", "/dev/vg1/volume_1", "--size", "32M", "--mode", "back_crash"}).code,
              0);
    ExpectAdvice({{{"expand", "cachedev_0"},
                   "vemocachectl delete md3+volume_1; vemocachectl create /dev/md3 /dev/vg1/volume_1 --mode "
                   "back_crash --size 33554432"}});
    EXPECT_EQ(Answer({"list"})["caches"][0]["size_bytes"], 32 << 20);
}

}  // namespace
}  // namespace tests
