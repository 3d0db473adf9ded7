// Several processes of the tool at once.
#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "cli/tool.h"

namespace tests {
namespace {

// What each writes of the configuration and its copy must not meet what the others write.
TEST(AtOnce, NoVerbFailsForAnother) {
    CreateCache();
    ASSERT_EQ(Tool({"create", "/dev/md4", "/dev/vg1/volume_2", "--size", "32M"}).code, 0);
    const std::vector<Words> verbs = {{"flush", "cachedev_0"},
                                      {"flush", "cachedev_1"},
                                      {"load", "--all"},
                                      {"expand", "cachedev_0"},
                                      {"state", "get", "cachedev_1"}};
    for (int round = 0; round < 8; ++round) {
        std::vector<std::unique_ptr<RunningTool>> running;
        for (const auto& verb : verbs) {
            running.push_back(std::make_unique<RunningTool>(verb));
        }
        for (std::size_t i = 0; i < verbs.size(); ++i) {
            EXPECT_EQ(running[i]->Wait(), 0) << verbs[i][0] << " in round " << round;
        }
    }
}

}  // namespace
}  // namespace tests
