// The forms of an answer, where hostile or odd texts stand in the configuration.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "output/json.h"
#include "output/text.h"

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
    EXPECT_EQ(nlohmann::json::parse(JsonOf(answer)),
              nlohmann::json::parse(R"({"format_version": 1, "thing": {"size_bytes": 1536,
                                        "device": "/dev/mapper/cachedev_0", "none": null, "why": null}})"));
    EXPECT_EQ(TextOf(answer), "  Size    1.5 KiB\n  Device  /dev/mapper/cachedev_0\n  None    -\n");
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

TEST(Output, LetsNoControlCharactersThrough) {
    const std::string hostile = "a\x1b[2Jb\nc\xff";
    const Answer answer = One("thing", {{{"name", "Name", hostile}}}, hostile);
    EXPECT_THAT(TextOf(answer), Not(HasSubstr("\x1b")));
    EXPECT_THAT(TextOf(Failure{hostile, hostile, hostile}), Not(HasSubstr("\x1b")));
    EXPECT_TRUE(nlohmann::json::accept(JsonOf(answer)));
    EXPECT_TRUE(nlohmann::json::accept(JsonOf(Failure{hostile, hostile, hostile})));
}

}  // namespace
}  // namespace cli
