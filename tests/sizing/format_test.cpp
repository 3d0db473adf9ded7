// Each text format: a sample written by hand from its description.
#include <gmock/gmock.h>

#include "tests/sizing/reading.h"

namespace sizing {
namespace {

using testing::AllOf;
using testing::HasSubstr;

struct Sample {
    const char* name;
    const char* text;
    std::vector<Told> requests;
    std::uint64_t ignored = 0;
};

constexpr const char* kBlkparse =
    "  8,16   3        1     0.000000000  4021  Q  WS 7340032 + 16 [postgres]\n"
    "  8,16   3        2     0.000001120  4021  G  WS 7340032 + 16 [postgres]\n"
    "  8,16   3        3     0.000002000  4021  D  WS 7340032 + 16 [postgres]\n"
    "  8,16   0        4     0.000500000     0  m   N cfq4021 insert_request\n"
    "  8,16   1        5     1.004512873   117  Q FWFS 64 + 8 [jbd2/sdb-8]\n"
    "  8,16   1        6     1.004600000   117  Q FWS [jbd2/sdb-8]\n"
    "  8,0    1        7     1.005000000    99  Q   D 2048 + 4096 [fstrim]\n"
    "  8,0    1        8     1.006000000    98  Q  RA 8 + 1 [a name with blanks]\n"
    "  8,0    1        9     1.007000000    98  D   R 36 (12 00 00 00 24 00) [scsi_id]\n"
    "  8,0    1       10     1.008000000    98  C  RA 8 + 1 [0]\n"
    "CPU1 (8,0):\n"
    " Reads Queued:           1,        1KiB\t Writes Queued:           1,        4KiB\n"
    "\n"
    "Total (8,0):\n"
    " Reads Queued:           1,        1KiB\t Writes Queued:           1,        4KiB\n"
    "\n"
    "Throughput (R/W): 0KiB/s / 4KiB/s\n"
    "Events (8,0): 10 entries\n"
    "Skips: 0 forward (0 -   0.0%)\n";

const std::vector<Sample>& Samples() {
    constexpr Kind kRead = Kind::kRead;
    constexpr Kind kWrite = Kind::kWrite;
    static const std::vector<Sample> samples = {
        {"blkparse",
         kBlkparse,
         {{0, "8,16", 3'758'096'384, 8192, kWrite},
          {1'004'512'873, "8,16", 32768, 4096, kWrite},
          {1'004'600'000, "8,16", 0, 0, Kind::kFlush},
          {1'005'000'000, "8,0", 1'048'576, 2'097'152, Kind::kDiscard},
          {1'006'000'000, "8,0", 4096, 512, kRead}},
         11},
        {"fio",
         "fio version 2 iolog\n/dev/vdb add\n/dev/vdb open\n/dev/vdb write 1048576 8192\n/dev/vdb wait 250 "
         "0\n"
         "/dev/vdb wait 250\n/dev/vdb read 4096 4096\n/dev/vdb datasync 0 0\n/dev/vdb trim 0 65536\n"
         "/dev/vdb close\n",
         {{0, "/dev/vdb", 1'048'576, 8192, kWrite},
          {500'000, "/dev/vdb", 4096, 4096, kRead},
          {500'000, "/dev/vdb", 0, 0, Kind::kFlush},
          {500'000, "/dev/vdb", 0, 65536, Kind::kDiscard}},
         6},
        {"fio",
         "fio version 3 iolog\n0 /dev/vdb add\n9 /dev/vdb open\n1532 /dev/vdb read 4096 4096\n"
         "1600 /dev/vdb sync 8192 0\n1700 /dev/vdb close\n",
         {{1'532'000, "/dev/vdb", 4096, 4096, kRead}, {1'600'000, "/dev/vdb", 0, 0, Kind::kFlush}},
         4},
        {"msr",
         "128166372010000000,web,1,Write,40960,8192,1210\n128166372010000007,web,0,Read,0,512,99\n",
         {{12'816'637'201'000'000'000U, "web,1", 40960, 8192, kWrite},
          {12'816'637'201'000'000'700U, "web,0", 0, 512, kRead}}},
        {"alibaba",
         "17,W,73728,12288,1577808001000042\r\n123456789,R,1099511627776,4096,1577808001000043\r\n",
         {{1'577'808'001'000'042'000, "17", 73728, 12288, kWrite},
          {1'577'808'001'000'043'000, "123456789", 1'099'511'627'776, 4096, kRead}}},
        {"systor",
         "Timestamp,Response,IOType,LUN,Offset,Size\n1456095145.250000000,0.000400000,R,2,81920,4096\n"
         "1456095145.5,,W,10,512,1024\n1456095146,0.1,,2,0,512\n",
         {{1'456'095'145'250'000'000, "2", 81920, 4096, kRead},
          {1'456'095'145'500'000'000, "10", 512, 1024, kWrite}},
         2},
        {"tencent",
         "1538323300,2048,16,1,4711\n1538323301,0,8,0,4711\n",
         {{1'538'323'300'000'000'000, "4711", 1'048'576, 8192, kWrite},
          {1'538'323'301'000'000'000, "4711", 0, 4096, kRead}}},
        {"spc",
         "3,120044,4096,w,12.501000\n0,8,512,R,12.6,more,fields\n",
         {{12'501'000'000, "3", 61'462'528, 4096, kWrite}, {12'600'000'000, "0", 4096, 512, kRead}}},
    };
    return samples;
}

TEST(Format, SampleOfEachIsRecognisedAndRead) {
    for (const Sample& sample : Samples()) {
        SCOPED_TRACE(sample.text);
        const Reading reading = ReadBytes(sample.text);
        EXPECT_EQ(reading.report.formats.at(0).note, sample.name);
        EXPECT_EQ(reading.requests, sample.requests);
        EXPECT_EQ(reading.report.bad, 0U);
        EXPECT_EQ(reading.report.ignored, sample.ignored);
    }
}

TEST(Format, EveryCutOfALineIsABadLineOrAShorterNumber) {
    for (const Sample& sample : Samples()) {
        const std::string_view text = sample.text;
        const auto format = FormatByName(sample.name);
        for (std::size_t size = 1; size < text.size(); ++size) {
            const Reading reading = ReadBytes(text.substr(0, size), {.format = format});
            ASSERT_LE(reading.report.bad, 1U) << sample.name << " cut at " << size;
            ASSERT_LE(reading.requests.size(), sample.requests.size());
            ASSERT_EQ(reading.report.records, reading.report.bad + reading.report.ignored +
                                                  reading.report.ofOtherStage + reading.requests.size());
        }
    }
}

TEST(Format, NamesLeadToFormatsAndBack) {
    EXPECT_EQ(FormatNames().size(), 8U);
    for (const std::string& name : FormatNames()) {
        ASSERT_TRUE(FormatByName(name));
        EXPECT_EQ(NameOf(*FormatByName(name)), name);
    }
    EXPECT_FALSE(FormatByName("csv"));
}

TEST(Format, BlockTraceCountsOneStageAlone) {
    const Reading queued = ReadBytes(kBlkparse);
    EXPECT_EQ(queued.report.ofOtherStage, 1U);
    const Reading issued = ReadBytes(kBlkparse, {.stage = Stage::kIssued});
    EXPECT_EQ(issued.requests, (std::vector<Told>{{2'000, "8,16", 3'758'096'384, 8192, Kind::kWrite}}));
    EXPECT_EQ(issued.report.ofOtherStage, 5U);
}

TEST(Format, BadLinesAreCountedAndThreeTold) {
    std::string text = "17,W,73728,12288,1577808001000042\n\n";
    for (int i = 0; i < 5; ++i) {
        text += "17,W,73728,\x1b[2Jrubbish" + std::to_string(i) + "\n17,R,0,4096,1577808001000043\n";
    }
    const Reading reading = ReadBytes(text);
    EXPECT_EQ(reading.requests.size(), 6U);
    EXPECT_EQ(reading.report.bad, 5U);
    ASSERT_EQ(reading.report.firstBad.size(), 3U);
    EXPECT_EQ(reading.report.firstBad[1].number, 5U);
    EXPECT_THAT(reading.report.firstBad[1].why,
                AllOf(HasSubstr("column 12"), HasSubstr("'17,W,73728,\\x1b[2Jrubbish1'")));
}

TEST(Format, NumbersAreReadToTheLastOneBelowTwoToThe64) {
    const std::pair<const char*, std::optional<std::uint64_t>> numbers[] = {
        {"0", 0},
        {"00000000000000000000000000007", 7},
        {"1234567", 1'234'567},
        {"12345678", 12'345'678},
        {"123456789012345", 123'456'789'012'345},
        {"1234567890123456", 1'234'567'890'123'456},
        {"18446744073709551615", 18'446'744'073'709'551'615U},
        {"18446744073709551616", std::nullopt},
        {"99999999999999999999", std::nullopt},
        {"-1", std::nullopt},
        {"+1", std::nullopt},
        {"", std::nullopt},
        {"1e3", std::nullopt},
        {"0x10", std::nullopt}};
    for (const auto& [text, value] : numbers) {
        // Once with much behind it and once at the end of the line.
        for (const std::string behind : {",4096,,,,,,,,,,,,,", ""}) {
            const std::string line = text + behind;
            Fields fields(line);
            std::uint64_t number = 0;
            const bool good = fields.Number(number) && fields.Rest() == behind;
            EXPECT_EQ(good ? std::optional(number) : std::nullopt, value) << text << behind;
        }
    }
}

TEST(Format, UnknownOnesAreRefusedWithTheirFirstLine) {
    const PrivateFolder folder;
    WriteText(folder / "notes", "\n\x07 Dear diary,\ntoday\n");
    const std::string failure = FailureOf({folder / "notes"});
    EXPECT_THAT(failure, HasSubstr(folder / "notes"));
    EXPECT_THAT(failure, HasSubstr("first line is '\\x07 Dear diary,'"));
    EXPECT_THAT(failure, HasSubstr("head -n 3"));
}

TEST(Format, WhatIsToldBeatsWhatIsRecognised) {
    const Reading reading = ReadBytes("17,W,73728,12288,1577808001000042\n", {.format = Format::kMsr});
    EXPECT_EQ(reading.report.formats.at(0).note, "msr");
    EXPECT_EQ(reading.report.bad, 1U);
    EXPECT_TRUE(reading.requests.empty());
}

}  // namespace
}  // namespace sizing
