// Where the bytes come from: files, compressed or not, several of them, standard input.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>
#include <zlib.h>
#include <zstd.h>

#include "base/pipe.h"
#include "base/write_all.h"
#include "tests/sizing/reading.h"

namespace sizing {
namespace {

using testing::HasSubstr;

std::string Gzip(std::string_view text) {
    z_stream stream{};
    EXPECT_EQ(deflateInit2(&stream, 6, Z_DEFLATED, 15 + 16, 8, Z_DEFAULT_STRATEGY), Z_OK);
    std::string packed(deflateBound(&stream, text.size()), '\0');
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(text.data()));
    stream.avail_in = static_cast<uInt>(text.size());
    stream.next_out = reinterpret_cast<Bytef*>(packed.data());
    stream.avail_out = static_cast<uInt>(packed.size());
    EXPECT_EQ(deflate(&stream, Z_FINISH), Z_STREAM_END);
    packed.resize(stream.total_out);
    deflateEnd(&stream);
    return packed;
}

std::string Zstd(std::string_view text) {
    std::string packed(ZSTD_compressBound(text.size()), '\0');
    const std::size_t size = ZSTD_compress(packed.data(), packed.size(), text.data(), text.size(), 3);
    EXPECT_EQ(ZSTD_isError(size), 0U);
    packed.resize(size);
    return packed;
}

// Longer than all buffers, packed or not.
std::string LongTrace(int lines = 60'000) {
    std::string text;
    std::uint64_t number = 1;
    for (int i = 0; i < lines; ++i) {
        number = number * 6'364'136'223'846'793'005U + 1;
        text += "1,R," + std::to_string(number >> 30U) + ",4096," + std::to_string(i) + "\n";
    }
    return text;
}

class Packed : public testing::TestWithParam<std::string (*)(std::string_view)> {};
INSTANTIATE_TEST_SUITE_P(Input, Packed, testing::Values(Gzip, Zstd));

TEST_P(Packed, ReadsTheSameAsPlain) {
    const std::string text = LongTrace();
    const Reading plain = ReadBytes(text);
    ASSERT_EQ(plain.requests.size(), 60'000U);
    EXPECT_EQ(ReadBytes(GetParam()(text)).requests, plain.requests);
    const std::size_t middle = text.size() / 2;  // pieces one after the other, as tools append them
    const std::string pieces = GetParam()(text.substr(0, middle)) + GetParam()(text.substr(middle));
    const Reading reading = ReadBytes(pieces);
    EXPECT_EQ(reading.requests, plain.requests);
    EXPECT_TRUE(reading.report.cutShort.empty());
}

TEST_P(Packed, WhatIsCutIsReadUpToThereAndTold) {
    const std::string packed = GetParam()(LongTrace());
    const Reading reading = ReadBytes(packed.substr(0, packed.size() - 40'000));
    EXPECT_GT(reading.requests.size(), 30'000U);
    ASSERT_EQ(reading.report.cutShort.size(), 1U);
    EXPECT_THAT(reading.report.cutShort[0].note, HasSubstr("ends in the middle"));
}

TEST_P(Packed, DamageIsToldAndNeverMoreThanThat) {
    const std::string packed = GetParam()(LongTrace(20'000));
    std::uint64_t told = 0;
    for (std::size_t at = 20; at < packed.size(); at += packed.size() / 40) {
        std::string damaged = packed;
        damaged[at] = static_cast<char>(damaged[at] ^ 0x55);
        const PrivateFolder folder;
        WriteText(folder / "trace", damaged);
        try {
            const Reading reading = ReadFiles({folder / "trace"});
            told += reading.report.cutShort.size();
        } catch (const Failure&) {
            ++told;  // not even the first line came out
        }
    }
    EXPECT_GT(told, 10U);  // zstd writes no checksum unless it is asked to: changed literals pass
}

TEST(Input, PaddingBehindGzipIsNoTrace) {
    const Reading reading = ReadBytes(Gzip("1,R,0,4096,7\n") + std::string(512, '\0'));
    EXPECT_EQ(reading.requests.size(), 1U);
    EXPECT_TRUE(reading.report.cutShort.empty());
}

TEST(Input, StandardInputIsAFileToo) {
    const base::Pipe pipe = base::MakePipe();
    ASSERT_TRUE(base::WriteAll(pipe.write.Get(), Zstd("1,R,0,4096,7\n2,W,4096,512,8\n")));
    const base::UniqueFd ownInput(dup(STDIN_FILENO));
    dup2(pipe.read.Get(), STDIN_FILENO);
    const_cast<base::Pipe&>(pipe).write.Reset();
    const Reading reading = ReadFiles({kStandardInput});
    dup2(ownInput.Get(), STDIN_FILENO);
    EXPECT_EQ(reading.requests,
              (std::vector<Told>{{7'000, "1", 0, 4096, Kind::kRead}, {8'000, "2", 4096, 512, Kind::kWrite}}));
}

TEST(Input, SeveralFilesOfAnyFormatsMergeByTime) {
    const PrivateFolder folder;
    WriteText(folder / "a", "1,R,0,512,10\n1,R,512,512,30\n1,R,1024,512,30\n");
    WriteText(folder / "b", "0,1,512,w,0.000005\n0,2,512,w,0.000030\n0,3,512,w,0.000020\n");
    WriteText(folder / "c", "");
    const Reading reading = ReadFiles({folder / "a", folder / "b", folder / "c"});
    std::vector<std::uint64_t> offsets;
    for (const Told& told : reading.requests) {
        offsets.push_back(told.offset + (told.kind == Kind::kWrite ? 1 : 0));
    }
    // At equal times the file named first; what goes backwards in its file comes where it stands there.
    EXPECT_EQ(offsets, (std::vector<std::uint64_t>{513, 0, 512, 1024, 1025, 1537}));
    EXPECT_EQ(reading.report.timesBackwards, 1U);
    EXPECT_EQ(reading.report.formats.size(), 2U);
}

TEST(Input, FilesWithoutTimesFollowEachOther) {
    const PrivateFolder folder;
    const std::string head = "fio version 2 iolog\n";
    WriteText(folder / "a", head + "/dev/a write 0 512\n/dev/a write 512 512\n");
    WriteText(folder / "b", head + "/dev/b read 0 512\n");
    const Reading reading = ReadFiles({folder / "b", folder / "a"});
    ASSERT_EQ(reading.requests.size(), 3U);
    EXPECT_EQ(reading.requests[0].volume, "/dev/b");
    EXPECT_EQ(reading.requests[2].offset, 512U);
}

TEST(Input, WhatCannotBeReadIsToldWithItsName) {
    const PrivateFolder folder;
    WriteText(folder / "empty", "");
    EXPECT_THAT(FailureOf({folder / "none"}),
                HasSubstr("cannot read " + (folder / "none") + "; No such file"));
    EXPECT_THAT(FailureOf({folder / "."}), HasSubstr("Is a directory"));
    EXPECT_THAT(FailureOf({folder / "empty", folder / "empty"}), HasSubstr("all files are empty"));
    EXPECT_THAT(FailureOf({}), HasSubstr("no file is named"));
    EXPECT_THAT(FailureOf(std::vector<std::string>(Trace::kMostFiles + 1, folder / "empty")),
                HasSubstr("the most are 512"));
}

}  // namespace
}  // namespace sizing
