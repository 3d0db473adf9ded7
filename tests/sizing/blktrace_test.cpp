// The binary form of block traces, in files made up here.
#include <gmock/gmock.h>

#include <algorithm>
#include <random>

#include "tests/sizing/reading.h"

namespace sizing {
namespace {

using testing::HasSubstr;

constexpr std::uint32_t kReadBit = 1U << 16U;
constexpr std::uint32_t kWriteBit = 1U << 17U;
constexpr std::uint32_t kFlushBit = 1U << 18U;
constexpr std::uint32_t kCommandBit = 1U << 25U;
constexpr std::uint32_t kNoticeBit = 1U << 26U;
constexpr std::uint32_t kDiscardBit = 1U << 29U;
constexpr std::uint32_t kControlGroup = 1U << 8U;
constexpr std::uint32_t kQueued = 1;
constexpr std::uint32_t kMerged = 2;
constexpr std::uint32_t kIssued = 7;
constexpr std::uint32_t kSdb = (8U << 20U) + 16;

struct Event {
    std::uint64_t time = 0;
    std::uint64_t sector = 0;
    std::uint32_t bytes = 0;
    std::uint32_t action = 0;
    std::string behind = "";
    std::uint32_t magic = 0x65617407;
};

enum class Order { kOurs, kOther };

template <class Number>
void Append(std::string& bytes, Number number, Order order) {
    std::string raw(reinterpret_cast<const char*>(&number), sizeof number);
    if (order == Order::kOther) {
        std::ranges::reverse(raw);
    }
    bytes += raw;
}

std::string Encode(const std::vector<Event>& events, Order order = Order::kOurs) {
    std::string bytes;
    std::uint32_t sequence = 0;
    for (const Event& event : events) {
        Append(bytes, event.magic, order);
        Append(bytes, ++sequence, order);
        Append(bytes, event.time, order);
        Append(bytes, event.sector, order);
        Append(bytes, event.bytes, order);
        Append(bytes, event.action, order);
        Append(bytes, std::uint32_t{4021}, order);
        Append(bytes, kSdb, order);
        Append(bytes, std::uint32_t{3}, order);
        Append(bytes, std::uint16_t{0}, order);
        Append(bytes, static_cast<std::uint16_t>(event.behind.size()), order);
        bytes += event.behind;
    }
    return bytes;
}

const std::vector<Event> kEvents = {{0, 0, 0, kNoticeBit, "postgres"},
                                    {100, 7'340'032, 8192, kWriteBit | kQueued},
                                    {110, 7'340'032, 8192, kWriteBit | kMerged},
                                    {120, 7'340'032, 16384, kWriteBit | kIssued},
                                    {200, 8, 512, kReadBit | kQueued | kControlGroup, std::string(8, 'g')},
                                    {300, 2048, 1U << 31U, kDiscardBit | kWriteBit | kQueued},
                                    {400, 0, 0, kFlushBit | kWriteBit | kQueued},
                                    {500, 64, 4096, kFlushBit | kWriteBit | kQueued},
                                    {600, 36, 36, kCommandBit | kReadBit | kIssued, "\x12"}};

const std::vector<Told> kQueuedRequests = {{100, "8,16", 3'758'096'384, 8192, Kind::kWrite},
                                           {200, "8,16", 4096, 512, Kind::kRead},
                                           {300, "8,16", 1'048'576, 1U << 31U, Kind::kDiscard},
                                           {400, "8,16", 0, 0, Kind::kFlush},
                                           {500, "8,16", 32768, 4096, Kind::kWrite}};

TEST(Blktrace, BothByteOrdersReadTheSame) {
    for (const Order order : {Order::kOurs, Order::kOther}) {
        const Reading reading = ReadBytes(Encode(kEvents, order));
        EXPECT_EQ(reading.report.formats.at(0).note, "blktrace");
        EXPECT_EQ(reading.requests, kQueuedRequests);
        EXPECT_EQ(reading.report.records, kEvents.size());
        EXPECT_EQ(reading.report.ignored, 3U);
        EXPECT_EQ(reading.report.ofOtherStage, 1U);
        EXPECT_EQ(reading.report.bad, 0U);
    }
}

TEST(Blktrace, IssuedRequestsInsteadOfQueuedOnes) {
    const Reading reading = ReadBytes(Encode(kEvents), {.stage = Stage::kIssued});
    EXPECT_EQ(reading.requests, (std::vector<Told>{{120, "8,16", 3'758'096'384, 16384, Kind::kWrite}}));
}

TEST(Blktrace, FilesOfAllCpusMergeToOneStreamByTime) {
    constexpr int kCpus = 7;
    std::mt19937_64 random(1);
    std::vector<std::vector<Event>> cpus(kCpus);
    std::vector<std::uint64_t> times;
    for (std::uint64_t time = 0; time < 20'000; ++time) {
        times.push_back(time);
        cpus[random() % (kCpus - 1)].push_back({time, time, 512, kReadBit | kQueued});  // one CPU is idle
    }
    const PrivateFolder folder;
    std::vector<std::string> files;
    for (int cpu = 0; cpu < kCpus; ++cpu) {
        files.push_back(folder / ("sdb.blktrace." + std::to_string(cpu)));
        WriteText(files.back(),
                  Encode(cpus[static_cast<std::size_t>(cpu)], cpu % 2 == 0 ? Order::kOurs : Order::kOther));
    }
    std::vector<std::uint64_t> seen;
    for (const Told& told : ReadFiles(files).requests) {
        seen.push_back(told.time);
        ASSERT_EQ(told.offset, told.time * 512);
    }
    EXPECT_EQ(seen, times);
}

TEST(Blktrace, CutAnywhereItTellsOneBadRecord) {
    const std::string whole = Encode(kEvents);
    for (std::size_t size = 4; size < whole.size(); ++size) {
        const Reading reading = ReadBytes(whole.substr(0, size));
        ASSERT_LE(reading.report.bad, 1U) << size;
        ASSERT_EQ(reading.requests,
                  std::vector<Told>(
                      kQueuedRequests.begin(),
                      kQueuedRequests.begin() + static_cast<std::ptrdiff_t>(reading.requests.size())));
        if (reading.report.bad == 1) {
            EXPECT_THAT(reading.report.firstBad[0].why, HasSubstr("cut off"));
            EXPECT_EQ(reading.report.firstBad[0].number, reading.report.records);
        }
    }
}

TEST(Blktrace, FindsTheNextRecordBehindRubbish) {
    const std::string rubbish = std::string(100'000, 'e') + "\x07ta";
    const Reading reading = ReadBytes(Encode({kEvents[1]}) + rubbish + Encode({kEvents[4]}) + "at\x07");
    EXPECT_EQ(reading.requests, (std::vector<Told>{kQueuedRequests[0], kQueuedRequests[1]}));
    EXPECT_EQ(reading.report.bad, 2U);
    EXPECT_EQ(reading.report.firstBad.at(0).number, 2U);
}

TEST(Blktrace, OtherVersionsAreNotGuessedAt) {
    Event old = kEvents[1];
    old.magic = 0x65617406;
    const PrivateFolder folder;
    WriteText(folder / "old", Encode({old, old}));
    EXPECT_THAT(FailureOf({folder / "old"}), HasSubstr("version 6"));
}

TEST(Blktrace, RubbishWithTheRightMagicEndsAndIsToldOf) {
    std::mt19937_64 random(1);
    for (int round = 0; round < 200; ++round) {
        std::string bytes;
        while (bytes.size() < 5'000) {
            Event event{random(), random(), static_cast<std::uint32_t>(random()),
                        static_cast<std::uint32_t>(random()), ""};
            std::string record = Encode({event}, round % 2 == 0 ? Order::kOurs : Order::kOther);
            record[46] = static_cast<char>(random());
            record[47] = static_cast<char>(random() % 4);
            bytes += record;
        }
        const Reading reading = ReadBytes(bytes);
        ASSERT_EQ(reading.report.records, reading.report.bad + reading.report.ignored +
                                              reading.report.ofOtherStage + reading.requests.size());
        for (const Told& told : reading.requests) {
            ASSERT_LE(told.length, ~told.offset);
        }
    }
    const Reading far = ReadBytes(Encode({{0, ~std::uint64_t{0}, 512, kReadBit | kQueued},
                                          {0, ~std::uint64_t{0} / 512, 4096, kReadBit | kQueued}}));
    EXPECT_EQ(far.report.bad, 2U);
    EXPECT_THAT(far.report.firstBad[1].why, HasSubstr("2^64"));
}

}  // namespace
}  // namespace sizing
