// What the shells offer on a command line of ours: asked as their scripts ask, and typed in real ones.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <sstream>

#include "cli/tool.h"

namespace tests {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::Ge;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::IsSupersetOf;
using testing::Not;
using testing::SizeIs;

// The kind of the offers, then their words.
Words Offered(Words words) {
    words.insert(words.begin(), "--complete");
    const Ran ran = Tool(words);
    EXPECT_EQ(ran.code, 0);
    Words offered;
    std::istringstream lines(ran.out);
    for (std::string line; std::getline(lines, line);) {
        offered.push_back(line.substr(0, line.find('\t')));
    }
    return offered;
}

TEST(Completion, OffersWhatTheVerbsDeclare) {
    EXPECT_THAT(Offered({"fl"}), ElementsAre("words", "flush"));
    EXPECT_THAT(Offered({""}), IsSupersetOf({"create", "list", "help", "--version"}));
    EXPECT_THAT(Offered({"--json", "knob", ""}), ElementsAre("words", "get", "set"));
    EXPECT_THAT(Offered({"help", "pin", "bi"}), ElementsAre("words", "bitmap"));
    EXPECT_THAT(Offered({"knob", "set", "x", "dirty"}), ElementsAre("words", "dirty_thresh_pct"));
    EXPECT_THAT(Offered({"state", "set", "x", "n"}), ElementsAre("words", "normal"));
    EXPECT_THAT(Offered({"create", "--mode", "aro"}), ElementsAre("words", "around"));
    EXPECT_THAT(Offered({"create", "--mode=aro"}), ElementsAre("words", "--mode=around"));
    EXPECT_THAT(Offered({"create", "--size", ""}), ElementsAre("words")) << "anything may come";
    EXPECT_THAT(Offered({"probe", "/dev/m"}), ElementsAre("files"));
    EXPECT_THAT(Offered({"pin", "add", "/volume1", ""}), ElementsAre("files"));
    EXPECT_THAT(Offered({"filestat", "run", ""}), ElementsAre("folders"));
    EXPECT_THAT(Offered({"doctor", "--explain", "VFC-D"}), SizeIs(Ge(30U)));
    EXPECT_THAT(Offered({"nonsense", ""}), ElementsAre("words"));
    EXPECT_THAT(Offered({}), ElementsAre("words"));
}

TEST(Completion, OffersOptionsThatMayStillBeGiven) {
    EXPECT_THAT(Offered({"flush", "--"}), IsSupersetOf({"--cancel", "--until", "--json", "--help"}));
    EXPECT_THAT(Offered({"flush", "--cancel", "--"}),
                AllOf(Not(Contains("--cancel")), Not(Contains("--status")), Contains("--follow")));
    EXPECT_THAT(Offered({"list", "--filter", "a=b", "--fil"}), ElementsAre("words", "--filter"));
    EXPECT_THAT(Offered({"pin", "check", "--", "--"}), ElementsAre("files"));
    EXPECT_THAT(Offered({"help", "flush", "--"}), ElementsAre("words", "--help"));
}

TEST(Completion, OffersTheCachesThatThereAre) {
    EXPECT_THAT(Offered({"flush", ""}), ElementsAre("words"));
    CreateCache();
    EXPECT_THAT(Offered({"flush", ""}), ElementsAre("words", "md3+volume_1", "cachedev_0"));
    EXPECT_THAT(Offered({"flush", "--until", "80", "m"}), ElementsAre("words", "md3+volume_1"));
    EXPECT_THAT(Offered({"config", "show", ""}), ElementsAre("words", "md3+volume_1"));
    EXPECT_THAT(Offered({"doctor", "--mute", "VFC-D033:m"}), ElementsAre("words", "VFC-D033:md3+volume_1"));
    EXPECT_THAT(Offered({"flush", "/dev/m"}), ElementsAre("files")) << "caches go by their devices, too";
    ASSERT_EQ(Tool({"unload", "cachedev_0"}).code, 0);
    EXPECT_THAT(Offered({"load", ""}), ElementsAre("words", "md3+volume_1"));
}

// A shell without anyone's settings, which reads our script and then shows a prompt.
Words ShellNamed(const std::string& name) {
    const std::string folder = VEMO_COMPLETION_FOLDER;
    if (name == "bash") {
        return {"bash", "-c",
                "exec bash --rcfile <(echo \"PS1='ready> '; source " + folder + "/vemocachectl.bash\") -i"};
    }
    if (name == "zsh") {
        return {"bash", "-c",
                "mkdir -p /tmp/zsh; echo \"PS1='ready> '; fpath=(" + folder +
                    " \\$fpath); autoload -U compinit; compinit -D -u\" >/tmp/zsh/.zshrc; "
                    "ZDOTDIR=/tmp/zsh exec zsh --no-globalrcs -i"};
    }
    return {"fish",
            "--private",
            "--no-config",
            "--init-command",
            "function fish_prompt; echo 'ready> '; end; source " + folder + "/vemocachectl.fish",
            "-i"};
}

class InShell : public testing::TestWithParam<std::string> {};

// A part of a line is typed and completed; the shell then runs what stands there, which shows what became of
// it.
TEST_P(InShell, CompletesVerbsAndNames) {
    if (std::system(("command -v " + GetParam() + " >/dev/null").c_str()) != 0) {
        GTEST_SKIP() << GetParam() << " is not installed";
    }
    CreateCache();
    const auto folder = std::filesystem::path(VEMOCACHECTL_PATH).parent_path().string();
    setenv("PATH", (folder + ":/usr/sbin:/usr/bin:/sbin:/bin").c_str(), 1);
    const auto type = [](const std::string& text) { return [text](pid_t) { return text; }; };
    const Ran ran = OnTerminal(ShellNamed(GetParam()),
                               {{"ready> ", type("vemocachectl --jso\tknob ge\tmd\tdirty_th\t\n")},
                                {"\"value\":", type("vemocachectl doctor --json --expl\tVFC-D06\t3\n")},
                                {"\"data_loss\":true", type("exit\n")}},
                               120, 40);
    EXPECT_THAT(ran.out, HasSubstr("{\"format_version\":2,\"knobs\":[{\"name\":\"dirty_thresh_pct\""));
}

INSTANTIATE_TEST_SUITE_P(Shells, InShell, testing::Values("bash", "zsh", "fish"));

}  // namespace
}  // namespace tests
