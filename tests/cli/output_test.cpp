// The forms of an answer, where hostile or odd texts stand in the configuration.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fmt/format.h>

#include "cli/json.h"
#include "output/filter.h"
#include "output/json.h"
#include "output/shape.h"
#include "output/text.h"
#include "output/wrap.h"

namespace cli {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

TEST(Output, ShowsSizesForPeople) {
    const std::pair<std::uint64_t, const char*> cases[] = {{0, "0 B"},
                                                           {1023, "1023 B"},
                                                           {1024, "1.0 KiB"},
                                                           {1536, "1.5 KiB"},
                                                           {1048575, "1.0 MiB"},
                                                           {std::uint64_t{120} << 30, "120.0 GiB"},
                                                           {UINT64_MAX, "16.0 EiB"}};
    for (const auto& [bytes, text] : cases) {
        EXPECT_EQ(HumanSize(bytes), text);
    }
}

TEST(Output, KeepsNumbersRealAndTheUnknownNull) {
    const Answer answer = One("thing", {{{"size_bytes", "Size", std::uint64_t{1536}, Format::kBytes},
                                         {"device", "Device", "/dev/mapper/cachedev_0", Format::kDevice},
                                         {"none", "None", Value()},
                                         {"why", "Why", Value(), Format::kPlain, false, true}}});
    EXPECT_EQ(tests::Json::Parse(JsonOf(answer)),
              tests::Json::Parse(R"({"format_version": 2, "thing": {"size_bytes": 1536,
                                        "device": "/dev/mapper/cachedev_0", "none": null, "why": null}})"));
    EXPECT_EQ(TextOf(answer), "  Size    1.5 KiB\n  Device  /dev/mapper/cachedev_0\n  None    -\n");
}

TEST(Output, HasListsAndPartsInBothForms) {
    Field parts{"details", "Details", {}, Format::kParts};
    parts.parts = {{"size_bytes", "Size", std::uint64_t{1536}, Format::kBytes}, {"none", "None", Value()}};
    Record record{{{"names", "Names", Texts{"a", "b\x1b"}}, {"no_names", "No names", Texts{}}, parts}};
    const Answer answer = One("thing", record);
    EXPECT_EQ(tests::Json::Parse(JsonOf(answer)),
              tests::Json::Parse(R"({"format_version": 2, "thing": {"names": ["a", "b\u001b"], "no_names": [],
                                        "details": {"size_bytes": 1536, "none": null}}})"));
    EXPECT_EQ(TextOf(answer), "  Names     a, b?\n  No names  -\n  Details   size_bytes 1.5 KiB, none -\n");
}

TEST(Output, TellsProseInThePlaceOfFieldsUnlessSomeAreChosen) {
    Answer answer{"things", Layout::kTable, {}, "", ""};
    for (const char* name : {"b", "a"}) {
        answer.records.push_back({{{"name", "Name", name}}});
        answer.records.back().prose = fmt::format("This is {}.\n", name);
    }
    answer.total = Record{{{"count", "Count", std::uint64_t{2}}}};
    answer.total->prose = "Two.\n";
    EXPECT_EQ(TextOf(Shaped(answer, {.sort = "name"})), "This is a.\n\nThis is b.\n\nTwo.\n");
    EXPECT_EQ(TextOf(Shaped(answer, {.fields = "name"})), "NAME\nb\na\n");
    EXPECT_EQ(TextOf(answer, {.noHeadings = true}), "b\na\n");
    EXPECT_EQ(tests::Json::Parse(JsonOf(answer))["total"]["count"], 2);
    answer.total->prose = "";
    EXPECT_EQ(TextOf(answer), "This is b.\n\nThis is a.\n");
}

TEST(Output, WrapsProse) {
    EXPECT_EQ(Wrapped("one two three", "  ", 9), "  one two\n  three\n");
    EXPECT_EQ(Wrapped("a-word-too-long b", "", 5), "a-word-too-long\nb\n");
    EXPECT_EQ(Wrapped("tab\tand\x1b[m", "", 80), "tab?and?[m\n");
    EXPECT_EQ(Wrapped("", "  ", 80), "");
}

TEST(Output, AlignsATable) {
    const auto row = [](const char* device, Value size, Value why) {
        return Record{{{"device", "Device", device, Format::kDevice},
                       {"size_bytes", "Size", std::move(size), Format::kBytes},
                       {"why", "Why", std::move(why), Format::kPlain, false, true}}};
    };
    const Answer answer{"things",
                        Layout::kTable,
                        {row("/dev/md3", std::uint64_t{1} << 30, {}), row("/dev/vg1/v", {}, "gone")},
                        "",
                        ""};
    EXPECT_EQ(TextOf(answer),
              "DEVICE     SIZE  WHY\n"
              "md3     1.0 GiB  -\n"
              "vg1/v         -  gone\n");
    EXPECT_THAT(TextOf({"things", Layout::kTable, {row("/dev/md3", {}, {})}, "", ""}), Not(HasSubstr("WHY")));
    EXPECT_EQ(TextOf({"things", Layout::kTable, {}, "", "There are none."}), "There are none.\n");
}

Answer Table() {
    Answer answer{"caches", Layout::kTable, {}, "", "There are none."};
    const auto add = [&](const char* name, Value size, Value problem) {
        answer.records.push_back(
            {{{"name", "Name", name},
              {"size_bytes", "Size", std::move(size), Format::kBytes},
              {"hits", "Hits", std::uint64_t{7}, Format::kPercent},
              {"problem", "Problem", std::move(problem), Format::kSentence, false, true}}});
        MayGiveWay(answer.records.back(), {"hits", "size_bytes"});
    };
    add("md10", std::uint64_t{2048}, {});
    add("md9", {}, "it is gone");
    add("m\u00fcll", std::uint64_t{1}, {});
    return answer;
}

TEST(Output, LeavesColumnsOutOfANarrowTable) {
    const char* whole =
        "NAME     SIZE  HITS  PROBLEM\n"
        "md10  2.0 KiB    7%  -\n"
        "md9         -    7%  it is gone\n"
        "m\u00fcll      1 B    7%  -\n";
    const char* problem = "\nmd9: it is gone\n";
    const std::string threeColumns =
        "NAME     SIZE  HITS\nmd10  2.0 KiB    7%\nmd9         -    7%\nm\u00fcll      1 B    7%\n";
    const std::string twoColumns = "NAME     SIZE\nmd10  2.0 KiB\nmd9         -\nm\u00fcll      1 B\n";
    const std::string oneColumn = "NAME\nmd10\nmd9\nm\u00fcll\n";
    const std::pair<std::size_t, std::string> cases[] = {
        {0, whole},
        {31, whole},
        {30, threeColumns + problem},
        {19, threeColumns + problem},
        {18, twoColumns + problem},
        {13, twoColumns + problem},
        {12, oneColumn + problem},
        {2, oneColumn + problem},
    };
    for (const auto& [columns, text] : cases) {
        EXPECT_EQ(TextOf(Table(), {.columns = columns}), text) << columns;
    }
    EXPECT_EQ(TextOf(Table(), {.wide = true, .columns = 10}), whole);
}

TEST(Output, SortsByValueAndKeepsTheUnknownLast) {
    const std::pair<const char*, std::vector<std::string>> cases[] = {
        {"name", {"md9", "md10", "m\u00fcll"}},       {"-name", {"m\u00fcll", "md10", "md9"}},
        {"size_bytes", {"m\u00fcll", "md10", "md9"}}, {"-size_bytes", {"md10", "m\u00fcll", "md9"}},
        {"hits", {"md10", "md9", "m\u00fcll"}},
    };
    for (const auto& [key, names] : cases) {
        std::vector<std::string> sorted;
        for (const auto& record : Shaped(Table(), {.sort = key}).records) {
            sorted.push_back(ToText(record.fields.front()));
        }
        EXPECT_EQ(sorted, names) << key;
    }
}

TEST(Output, ShowsChosenFieldsInTheirOrder) {
    const Form form{.fields = "problem,size_bytes", .bytes = true, .columns = 5};
    EXPECT_EQ(TextOf(Shaped(Table(), {.fields = "problem,size_bytes", .bytes = true}), {.bytes = true}),
              "PROBLEM     SIZE\n-           2048\nit is gone     -\n-              1\n");
    EXPECT_THAT(TextOf(Shaped(Table(), form), form), HasSubstr("SIZE"))
        << "what was asked for is not left out";
    EXPECT_EQ(TextOf(Shaped(Table(), {.fields = "problem"}), {.noHeadings = true}), "-\nit is gone\n-\n");
    for (const auto& wrong : {Form{.fields = "name,nmae"}, Form{.fields = "name,"}, Form{.sort = "Name"}}) {
        try {
            Shaped(Table(), wrong);
            ADD_FAILURE() << "a key that is none was taken";
        } catch (const Failure& failure) {
            EXPECT_EQ(failure.kind, FailureKind::kUsage);
            EXPECT_THAT(failure.why, HasSubstr("its fields are name, size_bytes, hits, problem"));
            EXPECT_EQ(failure.why.ends_with("did you mean name?"), wrong.fields != "name,") << failure.why;
        }
    }
}

TEST(Output, ShowsTheRecordsThatPassEveryFilter) {
    const std::vector<std::string> all = {"md10", "md9", "m\u00fcll"};
    const std::pair<std::vector<std::string>, std::vector<std::string>> cases[] = {
        {{"name=md9"}, {"md9"}},
        {{"name==md9"}, {"md9"}},
        {{"name!=md9"}, {"md10", "m\u00fcll"}},
        {{"size_bytes>1"}, {"md10"}},
        {{"size_bytes>=1"}, {"md10", "m\u00fcll"}},
        {{"size_bytes<2K"}, {"m\u00fcll"}},
        {{"size_bytes<=2KiB"}, {"md10", "m\u00fcll"}},
        {{"size_bytes=2048"}, {"md10"}},
        {{"size_bytes!=2048"}, {"md9", "m\u00fcll"}},  // what is not known is not that either
        {{"size_bytes=null"}, {"md9"}},
        {{"problem!=null"}, {"md9"}},
        {{"hits=7%"}, all},
        {{"hits<6.9"}, {}},
        {{"hits>6.9", "size_bytes>0", "name!=md10"}, {"m\u00fcll"}},
    };
    for (const auto& [filters, names] : cases) {
        std::vector<std::string> left;
        for (const auto& record : Shaped(Table(), {.filters = filters}).records) {
            left.push_back(ToText(record.fields.front()));
        }
        EXPECT_EQ(left, names) << filters.front();
    }
    EXPECT_EQ(TextOf(Shaped(Table(), {.filters = {"name=x"}})), "The filter leaves nothing.\n");
    const Answer whole = One("thing", {{{"a", "A", "x"}}});
    const std::pair<Answer, const char*> wrong[] = {{Table(), "nmae=x"},    {Table(), "size_bytes>x"},
                                                    {Table(), "name>x"},    {Table(), "hits=7K"},
                                                    {Table(), "hits<null"}, {whole, "a=x"}};
    for (const auto& [answer, filter] : wrong) {
        EXPECT_THROW(Shaped(answer, {.filters = {filter}}), Failure) << filter;
    }
    for (const auto* text : {"name", "=x", "name!x", "", ">=3"}) {
        EXPECT_NE(WhyNoFilter(text), "") << text;
    }
    const Answer device{
        "d", Layout::kTable, {{{{"ssd", "SSD", "/dev/md3", Format::kDevice}, {"up", "Up", true}}}}, "", ""};
    for (const auto* filter : {"ssd=/dev/md3", "ssd=md3", "up=yes", "up=true", "up!=no"}) {
        EXPECT_EQ(Shaped(device, {.filters = {filter}}).records.size(), 1U) << filter;
    }
}

TEST(Output, IsBareWithoutHeadings) {
    Answer answer =
        One("thing", {{{"a", "A", "x"}, {"b", "B", std::uint64_t{2}, Format::kBytes, true}}}, "Done.");
    EXPECT_EQ(TextOf(answer, {.noHeadings = true}), "x\n2 B\n");
    EXPECT_EQ(TextOf(answer, {.quiet = true}), "  A  x\n\n  B  2 B\n");
    answer.tellsHarm = true;
    EXPECT_EQ(TextOf(answer, {.noHeadings = true, .quiet = true}), "Done.\nx\n2 B\n");
    const Answer none{"things", Layout::kTable, {}, "", "There are none."};
    EXPECT_EQ(TextOf(none, {.noHeadings = true}), "");
    EXPECT_EQ(TextOf(none, {.quiet = true}), "");
}

TEST(Output, LetsNoControlCharactersThrough) {
    const std::string hostile = "a\x1b[2Jb\nc\xff";
    const Answer answer = One("thing", {{{"name", "Name", hostile}}}, hostile);
    EXPECT_THAT(TextOf(answer), Not(HasSubstr("\x1b")));
    EXPECT_THAT(TextOf(Failure{hostile, hostile, hostile}), Not(HasSubstr("\x1b")));
    EXPECT_TRUE(tests::Json::Parse(JsonOf(answer)).IsObject());
    EXPECT_TRUE(tests::Json::Parse(JsonOf(Failure{hostile, hostile, hostile})).IsObject());
}

}  // namespace
}  // namespace cli
