// What README shows of the tool is what the tool shows.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <regex>
#include <sstream>

#include "cli/tool.h"

namespace tests {
namespace {

using ::testing::Contains;
using ::testing::ElementsAreArray;

struct Example {
    Words words;  // behind the tool's name
    Words shown;  // lines; a "..." stands for any further ones
};

Words WordsOf(const std::string& text) {
    std::istringstream stream(text);
    Words words;
    for (std::string word; stream >> word;) {
        words.push_back(word);
    }
    return words;
}

// The lines of a text; what was drawn over on a terminal counts as a line.
Words LinesOf(const std::string& text) {
    static const std::regex ends("[\r\n]+|\x1b\\[K");
    const std::sregex_token_iterator begin(text.begin(), text.end(), ends, -1);
    Words lines(begin, std::sregex_token_iterator());
    std::erase(lines, "");
    return lines;
}

// A line without what differs from run to run: amounts, times, and the blanks that align them.
std::string Masked(std::string line) {
    static const std::pair<std::regex, const char*> varying[] = {
        {std::regex(R"(\b[0-9]+(\.[0-9])? ([KMG]i)?B\b)"), "SIZE"},
        {std::regex(R"((\b[0-9]+|-)%)"), "N%"},
        {std::regex(R"(\b[0-9]+ blocks)"), "N blocks"},
        {std::regex(R"(\b[0-9]+:[0-9]{2} to go)"), "TIME to go"},
        {std::regex(R"(\[#*\.*\])"), "[BAR]"},
        {std::regex(" +"), " "}};
    for (const auto& [pattern, mask] : varying) {
        line = std::regex_replace(line, pattern, mask);
    }
    return line;
}

Words AllMasked(Words lines) {
    std::transform(lines.begin(), lines.end(), lines.begin(), Masked);
    return lines;
}

std::vector<Example> ExamplesInReadme() {
    const std::string indent = "    ";
    const std::string prompt = indent + "$ vemocachectl ";
    std::vector<Example> examples;
    std::ifstream readme(VEMO_README_PATH);
    bool isWithin = false;
    for (std::string line; std::getline(readme, line);) {
        if (line.starts_with(prompt)) {
            examples.push_back({WordsOf(line.substr(prompt.size())), {}});
            isWithin = true;
        } else if (isWithin && line.starts_with(indent)) {
            examples.back().shown.push_back(line.substr(indent.size()));
        } else if (!line.empty()) {
            isWithin = false;
        }
    }
    return examples;
}

// "with some files written through it"
void WriteFiles() {
    for (const Words& words : std::vector<Words>{
             {"mkfs.ext4", "-q", "/dev/mapper/cachedev_0"},
             {"mount", "/dev/mapper/cachedev_0", "/volume1"},
             {"dd", "if=/dev/urandom", "of=/volume1/file", "bs=1M", "count=40", "conv=fsync"}}) {
        ASSERT_EQ(RunProgram(words).code, 0) << words.front();
    }
}

// A flush on a terminal until its bar tells how long it takes: after it has shown how much there is, half of
// that is written back, and the rest stays for as long as it likes to show the rate.
std::string FlushUntilItsRateShows(Words words) {
    Fault("cleaning", "pause");
    words.insert(words.begin(), VEMOCACHECTL_PATH);
    const auto cleanHalf = [](pid_t) {
        Fault("cleaning", std::to_string(DirtyBlocks() / 2));
        return std::string();
    };
    const Ran ran = OnTerminal(words, {{"left", cleanHalf}, {"to go", [](pid_t) { return "\x1c"; }}}, 120,
                               24);  // Ctrl-\ ends it
    return ran.out;
}

void ExpectShown(const Example& example) {
    if (example.words.front() == "flush") {
        ASSERT_EQ(example.shown.size(), 1U);
        EXPECT_THAT(AllMasked(LinesOf(FlushUntilItsRateShows(example.words))),
                    Contains(Masked(example.shown.front())));
        return;
    }
    const Ran ran = Tool(example.words);
    Words lines = LinesOf(ran.out + ran.err);
    Words shown = example.shown;
    std::erase(shown, "");
    if (shown.back() == "...") {
        shown.pop_back();
        ASSERT_GT(lines.size(), shown.size());
        lines.resize(shown.size());
    }
    EXPECT_THAT(AllMasked(lines), ElementsAreArray(AllMasked(shown))) << example.words.front();
}

TEST(Readme, ShowsWhatTheToolShows) {
    const auto examples = ExamplesInReadme();
    ASSERT_GE(examples.size(), 6U);
    for (const auto& example : examples) {
        ExpectShown(example);
        if (example.words.front() == "create") {
            WriteFiles();
        }
    }
}

}  // namespace
}  // namespace tests
