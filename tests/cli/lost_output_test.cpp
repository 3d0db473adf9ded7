// Standard descriptors that are full, closed, or lead to a reader that has gone.
#include <gtest/gtest.h>

#include "cli/tool.h"

namespace tests {
namespace {

// The tool, its descriptors redirected by a shell; what is printed last is its exit code.
std::string CodeOf(const std::string& command) {
    return RunProgram({"/bin/bash", "-c", command, "bash", VEMOCACHECTL_PATH}).out;
}

TEST(LostOutput, IsAFailureWhateverTheVerb) {
    const std::pair<const char*, const char*> cases[] = {
        {R"("$1" list >/dev/full; echo $?)", "1\n"},
        {R"("$1" list --json >/dev/full; echo $?)", "1\n"},
        {R"("$1" --help >/dev/full; echo $?)", "1\n"},
        {R"("$1" --version >/dev/full; echo $?)", "1\n"},
        {R"("$1" --version | grep -cE '^vemocachectl [0-9]+(\.[0-9]+)+$')", "1\n"},
        {R"("$1" list >&-; echo $?)", "1\n"},
        {R"("$1" list --json >&-; echo $?)", "1\n"},
        {R"("$1" list <&- >&- 2>&-; echo $?)", "1\n"},
        {R"(exec 4> >(exec true); wait $!; "$1" list >&4; echo $?)", "1\n"},
        {R"("$1" list >/dev/null 2>/dev/full; echo $?)", "0\n"},
        {R"("$1" status no_such 2>/dev/full; echo $?)", "1\n"},
        {R"("$1" no-such-verb 2>/dev/full; echo $?)", "2\n"},
        {R"("$1" list <&- >/dev/null 2>&-; echo $?)", "0\n"},
    };
    for (const auto& [command, code] : cases) {
        EXPECT_EQ(CodeOf(command), code) << command;
    }
}

TEST(LostOutput, EndsNoFlush) {
    CreateCache();
    ASSERT_EQ(RunProgram(
                  {"dd", "if=/dev/urandom", "of=/dev/mapper/cachedev_0", "bs=64k", "count=4", "oflag=direct"})
                  .code,
              0);
    EXPECT_EQ(CodeOf(R"("$1" flush cachedev_0 >/dev/null 2>/dev/full; echo $?)"), "0\n");
    EXPECT_EQ(DirtyBlocks(), 0);
}

TEST(LostOutput, IsToldOnStandardError) {
    for (const char* command :
         {R"("$1" list >/dev/full)", R"("$1" list >&-)", R"("$1" list --json >/dev/full)"}) {
        const Ran ran = RunProgram({"/bin/bash", "-c", command, "bash", VEMOCACHECTL_PATH});
        EXPECT_EQ(ran.code, 1) << command;
        EXPECT_NE(ran.err.find("could not be written"), std::string::npos) << ran.err;
    }
}

}  // namespace
}  // namespace tests
