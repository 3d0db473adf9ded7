// Totals, and requests as references to blocks.
#include <gtest/gtest.h>

#include "sizing/curve/references.h"
#include "sizing/trace/totals.h"

namespace sizing {
namespace {

Request Of(Kind kind, std::uint64_t offset, std::uint64_t length, std::uint64_t time = 0) {
    return {time, 1, offset, length, kind};
}

TEST(Totals, TellKindsApart) {
    Totals totals;
    for (const Request& request :
         {Of(Kind::kRead, 0, 100, 70), Of(Kind::kRead, 0, 0, 50), Of(Kind::kWrite, 0, kLongestRequest, 60),
          Of(Kind::kWrite, 0, kLongestRequest + 1, 60), Of(Kind::kDiscard, 0, 2 * kLongestRequest, 90),
          Of(Kind::kFlush, 0, 0, 80)}) {
        totals.Add(request);
    }
    EXPECT_EQ(totals.Of(Kind::kRead).requests, 2U);
    EXPECT_EQ(totals.Of(Kind::kRead).bytes, 100U);
    EXPECT_EQ(totals.Of(Kind::kRead).empty, 1U);
    EXPECT_EQ(totals.Of(Kind::kWrite).bytes, 2 * kLongestRequest + 1);
    EXPECT_EQ(totals.Of(Kind::kWrite).cut, 1U);
    EXPECT_EQ(totals.Of(Kind::kDiscard).bytes, 2 * kLongestRequest);
    EXPECT_EQ(totals.Of(Kind::kDiscard).cut, 0U);  // it stands for no blocks anyway
    EXPECT_EQ(totals.Of(Kind::kFlush).requests, 1U);
    EXPECT_EQ(totals.firstTime, 50U);
    EXPECT_EQ(totals.lastTime, 90U);
}

TEST(References, ARequestTouchesEachBlockThatItReachesInto) {
    const std::pair<Request, std::vector<std::uint64_t>> cases[] = {
        {Of(Kind::kRead, 0, 1), {0}},
        {Of(Kind::kRead, 4095, 1), {0}},
        {Of(Kind::kWrite, 4095, 2), {0, 1}},
        {Of(Kind::kRead, 4096, 8192), {1, 2}},
        {Of(Kind::kRead, 4097, 8192), {1, 2, 3}},
        {Of(Kind::kRead, 4096, 0), {}},
        {Of(Kind::kRead, ~std::uint64_t{0} - 1, 1), {(std::uint64_t{1} << 52U) - 1}},
        {Of(Kind::kDiscard, 0, 8192), {}},
        {Of(Kind::kFlush, 0, 0), {}}};
    for (const auto& [request, blocks] : cases) {
        std::vector<std::uint64_t> expected;
        for (const std::uint64_t block : blocks) {
            expected.push_back(BlockKey(1, block));
        }
        std::vector<std::uint64_t> touched;
        ForEachBlock(request, BlockSize(4096), [&](std::uint64_t key) { touched.push_back(key); });
        EXPECT_EQ(touched, expected) << request.offset << " + " << request.length;
    }
}

TEST(References, BlocksAreOfAVolume) {
    EXPECT_NE(BlockKey(1, 7), BlockKey(2, 7));
    EXPECT_NE(BlockKey(1, 7), BlockKey(1, 8));
}

TEST(References, ABlockIsAPowerOfTwo) {
    for (const std::uint64_t bytes : {512U, 4096U, 65536U}) {
        EXPECT_EQ(BlockSize(bytes).Bytes(), bytes);
    }
    for (const std::uint64_t bytes : {0U, 1U, 256U, 4097U, 12288U, 1U << 30U}) {
        EXPECT_THROW(BlockSize{bytes}, Failure) << bytes;
    }
}

}  // namespace
}  // namespace sizing
