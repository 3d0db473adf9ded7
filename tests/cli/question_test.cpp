// Questions on a terminal, and what happens to the caches while they stand.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cli/tool.h"

namespace tests {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

void WriteVolume() {
    const Words words = {"dd", "if=/dev/urandom", "of=/dev/vg1/volume_1", "bs=4k", "count=1", "conv=fsync"};
    EXPECT_EQ(RunProgram(words).code, 0);
}

void CreateUnloaded() {
    CreateDirtyCache();
    ASSERT_EQ(Tool({"unload", "cachedev_0"}).code, 0);
}

void CreateForgotten() {
    CreateUnloaded();
    ASSERT_EQ(Tool({"config", "remove", "md3+volume_1", "--forget-cache"}).code, 0);
}

void CreateStale() {
    CreateUnloaded();
    WriteVolume();
}

struct Asked {
    const char* what;
    void (*prepare)();
    Words verb;
    Words meanwhile;   // by another process, which waits for nobody
    const char* told;  // after the question, which asks for what is no longer so
    int code;
};

void PrintTo(const Asked& one, std::ostream* out) {
    *out << one.what;
}

class Question : public ::testing::TestWithParam<Asked> {};

TEST_P(Question, HoldsNobodyUpAndIsJudgedAnew) {
    const Asked& one = GetParam();
    one.prepare();
    const Ran ran = ToolOnTerminal(one.verb, "Type \"yes\" to go on: ", std::function<std::string()>([&one] {
                                       const Ran other = Tool(one.meanwhile);
                                       EXPECT_EQ(other.code, 0) << other.err;
                                       EXPECT_THAT(other.err, Not(HasSubstr("waiting")));
                                       return std::string("yes\n");
                                   }));
    EXPECT_EQ(ran.code, one.code) << ran.out;
    EXPECT_THAT(ran.out, HasSubstr(one.told));
}

const Words kLoad = {"load", "md3+volume_1"};
const Words kLoadStale = {"load", "md3+volume_1", "--accept-stale"};
const Words kWipe = {"wipe", "/dev/md3", "--discard-metadata"};
const Words kLoadUnknown = {"load", "/dev/md3", "/dev/vg1/volume_1"};
const Words kLoadUnknownStale = {"load", "/dev/md3", "/dev/vg1/volume_1", "--accept-stale"};

INSTANTIATE_TEST_SUITE_P(
    Verbs, Question,
    ::testing::Values(
        Asked{"Wipe", CreateUnloaded, {"wipe", "/dev/md3"}, kLoad, "the SSD /dev/md3 is in use", 1},
        Asked{"Create",
              CreateForgotten,
              {"create", "/dev/md3", "/dev/vg1/volume_2"},
              kLoadUnknown,
              "the SSD /dev/md3 belongs to the cache md3+volume_1",
              1},
        Asked{"Forget",
              CreateUnloaded,
              {"config", "remove", "md3+volume_1"},
              kLoad,
              "the cache md3+volume_1 is running",
              1},
        Asked{"Load", CreateStale, kLoad, kWipe, "the SSD /dev/md3 shows no cache metadata", 1},
        Asked{"LoadThatIsDone", CreateStale, kLoad, kLoadStale, "was up already", 0}),
    [](const auto& info) { return info.param.what; });

TEST(Question, IsAskedAnewWhenMoreWouldBeLost) {
    CreateUnloaded();
    const Ran ran =
        ToolOnTerminal({"wipe", "/dev/md3"}, "Type \"yes\" to go on: ", std::function<std::string()>([] {
                           EXPECT_EQ(Tool(kLoad).code, 0);
                           EXPECT_EQ(RunProgram({"dd", "if=/dev/urandom", "of=/dev/mapper/cachedev_0",
                                                 "bs=64k", "count=8", "seek=100", "oflag=direct"})
                                         .code,
                                     0);
                           EXPECT_EQ(Tool({"unload", "cachedev_0"}).code, 0);
                           return std::string("yes\nno\n");
                       }));
    EXPECT_EQ(ran.code, 1);
    EXPECT_THAT(ran.out, HasSubstr("with 20 blocks (1.2 MiB) that are not yet on its volume"));
    EXPECT_THAT(ran.out, HasSubstr("with 28 blocks (1.8 MiB) that are not yet on its volume"));
    EXPECT_THAT(ran.out, HasSubstr("nothing was changed"));
    ASSERT_EQ(Tool(kLoad).code, 0);
    EXPECT_EQ(DirtyBlocks(), 28);
}

// The entry that is written for an unknown cache is no other process's business until the admin has agreed.
TEST(Question, LeavesNoEntryWhileItStands) {
    CreateUnloaded();
    WriteVolume();
    ASSERT_EQ(Tool({"config", "remove", "md3+volume_1", "--forget-cache"}).code, 0);
    const Ran ran = ToolOnTerminal(kLoadUnknown, "Type \"yes\" to go on: ", std::function<std::string()>([] {
                                       EXPECT_TRUE(Answer({"config", "list"})["entries"].empty());
                                       return std::string("no\n");
                                   }));
    EXPECT_EQ(ran.code, 1);
    EXPECT_TRUE(Answer({"config", "list"})["entries"].empty());
    EXPECT_EQ(Tool(kLoadUnknownStale).code, 0);
    EXPECT_EQ(DirtyBlocks(), kDirty);
}

// What is dropped by consent is counted, and is no failure.
TEST(Dropped, BlocksAreToldByAWipe) {
    CreateUnloaded();
    const auto removed = Answer({"config", "remove", "md3+volume_1", "--forget-cache"})["removed"];
    EXPECT_EQ(removed["dirty_blocks_left"], kDirty);
    EXPECT_EQ(removed["dirty_bytes_left"], kDirty * 65536);
    const auto wiped = Answer(kWipe)["wiped"];
    EXPECT_EQ(wiped["lost_blocks"], kDirty);
    EXPECT_EQ(wiped["lost_bytes"], kDirty * 65536);
}

TEST(Dropped, BlocksAreToldByACreationOverThem) {
    CreateForgotten();
    const Words create = {"create", "/dev/md3", "/dev/vg1/volume_2", "--discard-content"};
    const auto made = Answer(create)["cache"];
    EXPECT_EQ(made["lost_blocks"], kDirty);
    EXPECT_EQ(made["lost_bytes"], kDirty * 65536);
    ASSERT_EQ(Tool({"delete", "cachedev_0"}).code, 0);
    EXPECT_EQ(Answer(create)["cache"]["lost_blocks"], 0);
}

}  // namespace
}  // namespace tests
