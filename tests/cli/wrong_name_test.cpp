// Names that name nothing.
#include <gtest/gtest.h>

#include "cli/tool.h"

namespace tests {
namespace {

TEST(WrongName, IsRefusedWithItsKind) {
    const struct {
        Words words;
        int code;
        const char* kind;
    } cases[] = {
        {{"ssd", "check", "", "480G"}, 2, "usage"},
        {{"serials", "get", ""}, 2, "usage"},
        {{"serials", "set", "", "S1"}, 2, "usage"},
        {{"serials", "remove", "", "--discard-list"}, 2, "usage"},
        {{"serials", "remove", "no_such_list", "--discard-list"}, 1, "not_found"},
        {{"serials", "check", "no_such_list", "S1"}, 1, "not_found"},
    };
    for (auto [words, code, kind] : cases) {
        words.emplace_back("--json");
        const Ran ran = Tool(words);
        EXPECT_EQ(ran.code, code) << ran.out;
        EXPECT_EQ(ran.Json()["error"]["kind"], kind) << ran.out;
    }
}

}  // namespace
}  // namespace tests
