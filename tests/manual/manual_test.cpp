// How manual pages are made: a header taken apart, and verbs as pages.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "manual/library_page.h"
#include "manual/passages.h"
#include "manual/scdoc.h"
#include "manual/verb_page.h"

namespace tests {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::Field;
using testing::HasSubstr;
using testing::Not;
using testing::SizeIs;

auto IsPassage(const char* term, const char* text) {
    return AllOf(Field(&manual::Passage::term, term), Field(&manual::Passage::text, text));
}

TEST(Scdoc, KeepsTextAsItIs) {
    EXPECT_EQ(manual::Plain("cachedev_N *out <a> [b]"), "cachedev\\_N \\*out \\<a\\> \\[b\\]");
    EXPECT_EQ(manual::Plain("two\nlines. Done"), "two lines. Done");
    EXPECT_EQ(manual::Literal("printf(\"\\n\");"), "```\nprintf(\"\\\\n\");\n```\n\n");
}

TEST(Comment, IsTakenApartIntoPassages) {
    EXPECT_THAT(manual::PassagesOf("/* Reads it, under\n * its lock.\n *\n * Silent. */", false),
                ElementsAre(IsPassage("", "Reads it, under its lock."), IsPassage("", "Silent.")));
    EXPECT_THAT(manual::PassagesOf(
                    "/* Reads it.\n * name: of the file, as\n *       it is.\n * Returns 0. */", false),
                ElementsAre(IsPassage("", "Reads it."), IsPassage("name", "of the file, as it is."),
                            IsPassage("", "Returns 0.")));
    EXPECT_THAT(manual::PassagesOf("/* A flush that\n * fails: it ends. */", false),
                ElementsAre(IsPassage("", "A flush that fails: it ends.")))
        << "no parameter stands in the midst of a sentence";
    EXPECT_THAT(
        manual::PassagesOf(
            "/*\n * Log.        Each failure\n *             is told.\n * Time.       None.\n */", true),
        ElementsAre(IsPassage("Log", "Each failure is told."), IsPassage("Time", "None.")));
    EXPECT_THAT(manual::PassagesOf("/*\n *   - One\n *     thing.\n *   - Another.\n */", true),
                ElementsAre(IsPassage("", "One thing."), IsPassage("", "Another.")));
}

constexpr const char* kHeader = R"(/*
 * header.h: a header.
 *
 * Time.       None.
 */
#include <stdint.h>

/* Not in a section. */
struct LIST;

/* ---- The platform's things -------------
 * Told here. */

/* A kind. */
typedef int32_t KIND;
enum {
    KIND_ONE = 1 /* the first */
};

/* Opens it. */
VEMOFLASHCACHE_API struct LIST *Open(const char *aRatherLongNameOfAnArgument, const char *another,
                                     int third);

void Close(struct LIST *list);

#ifdef __cplusplus
}
#endif
)";

TEST(Header, IsTakenApartIntoSections) {
    const manual::PublicHeader header = manual::ReadHeader(kHeader);
    ASSERT_THAT(header.passages,
                ElementsAre(IsPassage("", "header.h: a header."), IsPassage("Time", "None.")));
    ASSERT_THAT(header.sections, SizeIs(1));
    const manual::Section& section = header.sections.front();
    EXPECT_EQ(manual::PageName(section), "vemoflashcache-platform-things");
    EXPECT_THAT(section.passages, ElementsAre(IsPassage("", "Told here.")));
    ASSERT_THAT(section.items, SizeIs(2));
    EXPECT_THAT(section.items[0].code, AllOf(HasSubstr("typedef int32_t KIND;"), HasSubstr("the first")));
    EXPECT_THAT(section.items[0].functions, SizeIs(0));
    EXPECT_THAT(section.items[1].functions, ElementsAre("Open", "Close"));
    EXPECT_EQ(section.items[1].code,
              "struct LIST *Open(const char *aRatherLongNameOfAnArgument,\n"
              "        const char *another, int third);\n"
              "void Close(struct LIST *list);");
    EXPECT_THROW(manual::ReadHeader("/* nothing */\n"), std::runtime_error);
}

struct Options {
    std::string name;
    std::string mode = "back";
    std::int32_t count = 1;
};

std::vector<cli::Argument> Declare(Options& options) {
    return {{.name = "NAME", .help = "its name", .target = &options.name, .required = true},
            {.name = "-m,--mode",
             .help = "how it goes",
             .target = &options.mode,
             .showsDefault = true,
             .choices = {"back", "thru"},
             .excludes = {"--count"}},
            {.name = "--count", .help = "how often", .target = &options.count, .range = {1, INT32_MAX}}};
}

TEST(VerbPage, TellsWhatTheVerbDeclares) {
    const auto verb =
        cli::MakeVerb<Options>("try", "Try it; gently", "vemocachectl try x\n  vemocachectl try y", Declare,
                               [](cli::Context&, const Options&) {});
    const std::string page = manual::VerbPage(verb);
    for (const char* part :
         {"vemocachectl\\-try - try it\n", "*vemocachectl try* \\[_OPTION_...\\] _NAME_\n", "Try it; gently.",
          "*\\-m*, *\\-\\-mode* _TEXT_\n\tHow it goes. One of back, thru. Default: back. Not with "
          "\\-\\-count.",
          "*\\-\\-count* _NUMBER_\n\tHow often. At least 1.", "*\\-\\-dry\\-run*",
          "```\nvemocachectl try x\nvemocachectl try y\n```", "# EXIT STATUS\n\nSee *vemocachectl*(8)."}) {
        EXPECT_THAT(page, HasSubstr(part));
    }
    const std::string question = manual::VerbPage(cli::Question(verb, "there is none"));
    EXPECT_THAT(question, AllOf(HasSubstr("*3*\n\tNo: there is none."), Not(HasSubstr("dry\\-run"))));
    const std::string group = manual::VerbPage(cli::MakeGroup("all", "Do all", {verb}));
    EXPECT_THAT(group, HasSubstr("*vemocachectl all try* \\[_OPTION_...\\] _NAME_\n"));
}

}  // namespace
}  // namespace tests
