// The commands of the operator's guide do what it says, chapter by chapter.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <ostream>
#include <sstream>

#include "cli/tool.h"

namespace tests {
namespace {

// What a chapter runs: a script for each boot of the same appliance. Blocks of "sh" are for the reader; a
// comment
// "<!-- run: COMMAND -->" is what happens meanwhile, or what must be so then.
struct Chapter {
    std::string title;
    Words options;
    Words boots;
};

void PrintTo(const Chapter& chapter, std::ostream* out) {
    *out << chapter.title;
}

std::string InComment(const std::string& line, const std::string& kind) {
    const std::string begin = "<!-- " + kind;
    const std::string end = " -->";
    return line.starts_with(begin) && line.ends_with(end)
               ? line.substr(begin.size(), line.size() - begin.size() - end.size())
               : "";
}

std::vector<Chapter> Chapters() {
    std::vector<Chapter> chapters;
    std::ifstream guide(VEMO_GUIDE_PATH);
    bool isShown = false;
    for (std::string line; std::getline(guide, line);) {
        if (line.starts_with("## ")) {
            chapters.push_back({line.substr(3), {}, {""}});
        } else if (line.starts_with("```")) {
            isShown = line == "```sh";
        } else if (isShown) {
            chapters.back().boots.back() += line + "\n";
        } else if (const std::string options = InComment(line, "appliance: "); !options.empty()) {
            std::istringstream words(options);
            chapters.back().options.assign(std::istream_iterator<std::string>(words), {});
        } else if (const std::string command = InComment(line, "run: "); !command.empty()) {
            chapters.back().boots.back() += command + "\n";
        } else if (line == "<!-- restart -->") {
            chapters.back().boots.emplace_back();
        }
    }
    return chapters;
}

class Guide : public ::testing::TestWithParam<Chapter> {
  protected:
    void SetUp() override { ASSERT_NE(mkdtemp(folder_.data()), nullptr); }
    void TearDown() override { std::filesystem::remove_all(folder_); }

    Ran Boot(const std::string& script) const {
        Words words = {VEMO_APPLIANCE_PATH, "--state", folder_};
        words.insert(words.end(), GetParam().options.begin(), GetParam().options.end());
        const std::string tools = std::filesystem::path(VEMOCACHECTL_PATH).parent_path();
        const Words shell = {"bash", "-euo", "pipefail", "-c", "PATH=" + tools + ":$PATH\n" + script};
        words.insert(words.end(), shell.begin(), shell.end());
        return RunProgram(words);
    }

  private:
    std::string folder_ = (std::filesystem::temp_directory_path() / "guide-XXXXXX").string();
};

TEST_P(Guide, HasCommandsThatDoWhatItSays) {
    constexpr int kPowerCut = 137;
    for (const std::string& script : GetParam().boots) {
        ASSERT_NE(script, "");
        const Ran ran = Boot(script);
        const bool isCut = script.ends_with("fault power cut\n");
        EXPECT_EQ(ran.code, isCut ? kPowerCut : 0) << script << ran.out << ran.err;
    }
}

std::string NameOf(const ::testing::TestParamInfo<Chapter>& info) {
    std::string name;
    for (const char letter : info.param.title) {
        name += std::isalnum(static_cast<unsigned char>(letter)) != 0 ? std::string(1, letter) : "";
    }
    return name;
}

INSTANTIATE_TEST_SUITE_P(Chapter, Guide, ::testing::ValuesIn(Chapters()), NameOf);

}  // namespace
}  // namespace tests
