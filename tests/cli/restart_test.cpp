// A cache over restarts of the appliance.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "cli/tool.h"

namespace tests {
namespace {

// A folder that keeps an appliance's disks and configuration from boot to boot.
class KeptAppliance : public ::testing::Test {
  protected:
    void SetUp() override { ASSERT_NE(mkdtemp(folder_.data()), nullptr); }
    void TearDown() override { std::filesystem::remove_all(folder_); }

    // Boots it, runs one command and shuts it down.
    Ran Boot(Words command) const {
        Words words = {VEMO_APPLIANCE_PATH, "--state", folder_};
        words.insert(words.end(), command.begin(), command.end());
        return RunProgram(words);
    }
    Ran Shell(const std::string& script) const { return Boot({"sh", "-ec", script}); }

  private:
    std::string folder_ = (std::filesystem::temp_directory_path() / "vemocachectl-XXXXXX").string();
};

TEST_F(KeptAppliance, LoadsWhatWasWrittenBeforeTheRestart) {
    const std::string tool = VEMOCACHECTL_PATH;
    const Ran first = Shell(
        tool +
        " create /dev/md3 /dev/vg1/volume_1 --size 64M >/dev/null\n"
        "dd if=/dev/urandom of=/usr/vemo/etc/data bs=64k count=20 2>/dev/null\n"
        "dd if=/usr/vemo/etc/data of=/dev/mapper/cachedev_0 bs=64k oflag=direct conv=fsync 2>/dev/null\n");
    ASSERT_EQ(first.code, 0) << first.err;

    const Ran list = Boot({tool, "list", "--json"});
    EXPECT_EQ(list.Json()["caches"][0]["state"], "unloaded");

    const Ran second = Shell(tool +
                             " load --all --json\n"
                             "cmp -n 1310720 /usr/vemo/etc/data /dev/mapper/cachedev_0\n"
                             "cmp /usr/vemo/etc/flashcache.conf /tmp/flashcache.conf\n"
                             "! cmp -s -n 1310720 /usr/vemo/etc/data /dev/vg1/volume_1\n");
    EXPECT_EQ(second.code, 0) << second.out << second.err;
    EXPECT_EQ(second.Json()["caches"][0]["state"], "running");
}

TEST_F(KeptAppliance, ForgetsAFlushThatTheRestartEnded) {
    const std::string tool = VEMOCACHECTL_PATH;
    const Ran first =
        Shell(tool + " create /dev/md3 /dev/vg1/volume_1 --size 64M >/dev/null\n" + VEMO_APPLIANCE_PATH +
              " fault cleaning pause\n"
              "dd if=/dev/urandom of=/dev/mapper/cachedev_0 bs=64k count=3 oflag=direct conv=fsync\n" +
              tool +
              " flush cachedev_0 &\n"
              "until grep -q flushing /usr/vemo/etc/flashcache.conf; do :; done\n");
    ASSERT_EQ(first.code, 0) << first.err;
    const Ran second = Shell(tool + " load --all >/dev/null\n" + tool + " status --json\n");
    const auto cache = second.Json()["caches"][0];
    EXPECT_EQ(cache["state"], "running");
    EXPECT_EQ(cache["flush_state"], "normal");
    EXPECT_EQ(cache["handle_state"], "normal");
}

}  // namespace
}  // namespace tests
