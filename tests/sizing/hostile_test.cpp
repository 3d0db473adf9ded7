// Input that nobody should have to read: told of, and survived in bounded time and memory.
#include <gmock/gmock.h>

#include <random>

#include "sizing/curve/exact_curve.h"
#include "sizing/survey.h"
#include "tests/sizing/reading.h"

namespace sizing {
namespace {

using testing::HasSubstr;

constexpr const char* kGood = "1,R,0,4096,7\n";

TEST(Hostile, LinesOfAMebibyteAreOneBadLineEach) {
    const std::string huge(1U << 20U, '1');
    const Reading reading = ReadBytes(kGood + huge + "\n" + kGood + huge + huge + "\n" + kGood + huge);
    EXPECT_EQ(reading.requests.size(), 3U);
    EXPECT_EQ(reading.report.bad, 3U);
    EXPECT_EQ(reading.report.firstBad.at(1).number, 4U);
    EXPECT_THAT(reading.report.firstBad.at(1).why, HasSubstr("longer than 65536 bytes"));
}

TEST(Hostile, LinesAroundTheSizeOfTheBufferAreAllFound) {
    for (std::size_t size = ByteBuffer::kSize - 3; size < ByteBuffer::kSize + 3; ++size) {
        const Reading reading = ReadBytes(kGood + std::string(size, 'x') + "\n" + kGood);
        EXPECT_EQ(reading.requests.size(), 2U) << size;
        EXPECT_EQ(reading.report.bad, 1U) << size;
        EXPECT_EQ(reading.report.records, 3U) << size;
    }
}

TEST(Hostile, PlacesBeyondTwoToThe64AreBad) {
    const std::pair<const char*, bool> lines[] = {
        {"1,R,18446744073709551615,0,1", true},    {"1,R,18446744073709551103,512,1", true},
        {"1,R,18446744073709551104,512,1", false}, {"1,R,0,18446744073709551615,1", true},
        {"1,R,1,18446744073709551615,1", false},   {"1,R,0,512,18446744073709552", false},
        {"0,36028797018963967,0,r,1", true},       {"0,36028797018963968,0,r,1", false},
        {"0,0,0,r,18446744073.709551615", true},   {"0,0,0,r,18446744073.709551616", false}};
    for (const auto& [line, isGood] : lines) {
        const auto format = std::string_view(line).starts_with("1") ? Format::kAlibaba : Format::kSpc;
        const Reading reading = ReadBytes(line, {.format = format});
        EXPECT_EQ(reading.requests.size(), isGood ? 1U : 0U) << line;
        EXPECT_EQ(reading.report.bad, isGood ? 0U : 1U) << line;
    }
}

// Terabytes in one request, at the very end of what can be told, and of nothing: with both curves.
TEST(Hostile, NoRequestIsMoreThanSoManyBlocks) {
    const PrivateFolder folder;
    WriteText(folder / "trace",
              "1,R,0,18446744073709551615,1\n1,W,18446744073709551103,512,2\n1,R,4096,0,3\n"
              "1,R,0,109951162777600,4\n");
    for (const std::size_t samples : {0U, 8192U}) {
        const Survey survey =
            SurveyTrace({folder / "trace"}, {.read = {}, .blockSize = BlockSize(4096), .samples = samples});
        const double blocks = static_cast<double>(kLongestRequest) / 4096;
        EXPECT_DOUBLE_EQ(survey.curve.Referred().reads, 2 * blocks);
        EXPECT_DOUBLE_EQ(survey.curve.Referred().writes, 1);
        EXPECT_EQ(survey.totals.Of(Kind::kRead).cut, 2U);
        EXPECT_EQ(survey.totals.Of(Kind::kRead).empty, 1U);
        EXPECT_EQ(survey.totals.Of(Kind::kRead).bytes, ~std::uint64_t{0});  // and no more
    }
}

TEST(Hostile, AnExactCurveEndsBeforeTheMemoryDoes) {
    ExactCurve curve(BlockSize(4096), 1000);
    Request request;
    request.length = 1000 * 4096;
    curve.Add(request);
    request.offset = 4096;
    EXPECT_THROW(curve.Add(request), Failure);
}

TEST(Hostile, AnyNumberOfVolumesHasKeysAndTheFirstHaveNames) {
    std::string text;
    for (int volume = 0; volume < 10'000; ++volume) {
        text += std::to_string(volume) + ",R,0,4096,1\n";
    }
    const Reading reading = ReadBytes(text);
    EXPECT_EQ(reading.requests.size(), 10'000U);
    EXPECT_EQ(reading.requests[VolumeNames::kMostNames - 1].volume, "4095");
    EXPECT_EQ(reading.requests[VolumeNames::kMostNames].volume, "");
}

TEST(Hostile, TextsOfAnyLengthHaveKeysOfTheirOwn) {
    std::vector<std::uint64_t> keys;
    std::string text;
    for (int length = 0; length < 40; ++length) {
        keys.push_back(TextKey(text));
        for (std::size_t at = 0; at < text.size(); ++at) {
            std::string other = text;
            other[at] = 'b';
            keys.push_back(TextKey(other));
        }
        text += 'a';
    }
    std::ranges::sort(keys);
    EXPECT_EQ(std::ranges::adjacent_find(keys), keys.end());
}

// Every format reads rubbish that looks like a trace here and there.
TEST(Hostile, ChangedBytesAreNeverMoreThanBadLines) {
    const std::string seeds[] = {
        "  8,16   3        1     0.000000000  4021  Q  WS 7340032 + 16 [postgres]\n",
        "fio version 2 iolog\n/dev/vdb write 1048576 8192\n/dev/vdb wait 99999999999999999\n",
        "fio version 3 iolog\n1532 /dev/vdb read 4096 4096\n1600 /dev/vdb sync 0 0\n",
        "128166372010000000,web,1,Write,40960,8192,1210\n",
        "17,W,73728,12288,1577808001000042\n",
        "1456095145.250000000,0.000400000,R,2,81920,4096\n",
        "1538323300,2048,16,1,4711\n",
        "3,120044,4096,w,12.501000\n"};
    std::mt19937_64 random(1);
    const std::string letters("0123456789,,,,..  -+RWrw\n\n\0\xff[(", 31);
    for (const std::string& name : FormatNames()) {
        for (int round = 0; round < 40; ++round) {
            std::string text;
            for (int line = 0; line < 100; ++line) {
                text += seeds[random() % std::size(seeds)];
            }
            for (std::size_t change = 0; change < text.size() / 30; ++change) {
                text[random() % text.size()] = letters[random() % letters.size()];
            }
            const Reading reading = ReadBytes(text, {.format = FormatByName(name)});
            ASSERT_EQ(reading.report.records, reading.report.bad + reading.report.ignored +
                                                  reading.report.ofOtherStage + reading.requests.size());
            for (const Told& told : reading.requests) {
                ASSERT_LE(told.length, ~told.offset);
            }
        }
    }
}

}  // namespace
}  // namespace sizing
