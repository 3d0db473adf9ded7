#include "support/appliance.h"

namespace {

using namespace appliance;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kOverride = "/tmp/flashcache_stats";
constexpr const char* kDetected =
    "Detect that /tmp/flashcache_stats exists, so VEMOFlashCacheCountStatGet get info from it.";

// The second line as the kernel writes it; "#" stands where a counter is kept.
constexpr const char* kBackLine =
    "read_hits=# read_hit_percent=7 write_hits=# write_hit_percent=7 write_miss_ssd=# dirty_write_hits=7 "
    "dirty_write_hit_percent=7 replacement=7 write_replacement=7 write_invalidates=7 read_invalidates=7 "
    "pending_enqueues=7 pending_inval=7 metadata_dirties=7 metadata_cleans=7 metadata_batch=7 "
    "metadata_ssd_writes=7 cleanings=7 fallow_cleanings=7 no_room=7 front_merge=7 back_merge=7 disk_reads=7 "
    "disk_writes=7 ssd_reads=7 ssd_writes=7 uncached_reads=7 uncached_writes=7 uncached_IO_requeue=7 "
    "uncached_sequential_reads=# uncached_sequential_writes=# \n";
constexpr const char* kAroundLine =
    "read_hits=# read_hit_percent=7 replacement=7 read_invalidates=7 pending_enqueues=7 pending_inval=7 "
    "no_room=7 disk_reads=7 disk_writes=7 ssd_reads=7 ssd_writes=7 uncached_reads=7 uncached_writes=7 "
    "uncached_IO_requeue=7 uncached_sequential_reads=# uncached_sequential_writes=# \n";

std::string HitLine(const std::vector<std::string>& counts) {
    std::string line = counts.size() == 5 ? kBackLine : kAroundLine;
    for (const std::string& count : counts) {
        line.replace(line.find('#'), 1, count);
    }
    return line;
}

std::string File(const std::string& reads, const std::string& writes,
                 const std::vector<std::string>& counts) {
    return "reads=" + reads + " writes=" + writes + "\n" + HitLine(counts);
}

class CountersTest : public LibraryTest {
  protected:
    static constexpr uint64_t kUntouched = 4711;

    int Read(const std::string& file, FLASHCACHE_WRITE_MODE mode = FLASHCACHE_WRITE_BACK) {
        WriteWhole(kOverride, file);
        counters_ = {};
        counters_.Reads = kUntouched;
        spy::state().log.clear();
        return VEMOFlashCacheCountStatGet("md3", "volume_1", mode, &counters_);
    }

    FLASHCACHE_COUNT_STAT counters_{};
};

TEST_F(CountersTest, CountsAndPercentages) {
    const struct {
        std::string reads, writes;
        std::vector<std::string> counts;  // read hits, write hits, SSD write misses, sequential reads, writes
        uint32_t readPercent, writePercent;
    } cases[] = {
        {"0", "0", {"0", "0", "0", "0", "0"}, 0, 0},
        {"50", "200", {"9", "30", "20", "50", "100"}, 0, 50},
        {"3", "3", {"1", "1", "1", "0", "0"}, 33, 66},
        {"18446744073709551615", "1", {"1", "1", "0", "0", "0"}, 0, 100},
    };
    for (const auto& test : cases) {
        for (const FLASHCACHE_WRITE_MODE mode :
             {FLASHCACHE_WRITE_BACK, FLASHCACHE_WRITE_BACK_BYPASS, FLASHCACHE_WRITE_BACK_CRASH}) {
            ASSERT_EQ(Read(File(test.reads, test.writes, test.counts), mode), 0);
            EXPECT_THAT(spy::LoggedTexts(), ElementsAre(kDetected));
            std::vector<std::string> counts;
            for (const uint64_t count :
                 {counters_.Reads, counters_.Writes, counters_.ReadHits, counters_.WriteHits,
                  counters_.WriteMissSSD, counters_.UncachedSeqReads, counters_.UncachedSeqWrites}) {
                counts.push_back(std::to_string(count));
            }
            std::vector<std::string> expected = {test.reads, test.writes};
            expected.insert(expected.end(), test.counts.begin(), test.counts.end());
            EXPECT_EQ(counts, expected);
            EXPECT_EQ(counters_.ReadHitPercent, test.readPercent);
            EXPECT_EQ(counters_.WriteHitPercent, test.writePercent);
        }
    }
}

TEST_F(CountersTest, WriteAroundCachesHaveFewer) {
    ASSERT_EQ(Read(File("10", "20", {"4", "2", "5"}), FLASHCACHE_WRITE_AROUND), 0);
    EXPECT_EQ(counters_.ReadHits, 4U);
    EXPECT_EQ(counters_.UncachedSeqReads, 2U);
    EXPECT_EQ(counters_.UncachedSeqWrites, 5U);
    EXPECT_EQ(counters_.ReadHitPercent, 50U);
    EXPECT_EQ(counters_.WriteHits + counters_.WriteMissSSD + counters_.WriteHitPercent, 0U);
    EXPECT_EQ(Read(File("1", "2", {"1", "2", "3", "4", "5"}), FLASHCACHE_WRITE_AROUND), -2);
    EXPECT_EQ(Read(File("10", "20", {"4", "2", "5"}), FLASHCACHE_WRITE_BACK), -2);
}

TEST_F(CountersTest, WhatDoesNotParseLeavesTheRecordAlone) {
    const std::string good = File("1", "2", {"1", "2", "3", "4", "5"});
    const std::string noLine = "Failed to get line from /tmp/flashcache_stats";
    const struct {
        std::string file;
        FLASHCACHE_WRITE_MODE mode;
        int result;
        std::string logged;
    } cases[] = {
        {"", 1, -2, noLine},
        {"reads=1 writes=2\n", 1, -2, noLine},
        {"reads=1 writes=2\n", 0, -2, noLine},
        {"reads=1\n" + good, 1, -2, ""},
        {"reads=x writes=2\n" + HitLine({"1", "2", "3", "4", "5"}), 1, -2, ""},
        {std::string("\0reads=1 writes=2\n", 18) + HitLine({"1", "2", "3", "4", "5"}), 1, -2, ""},
        {"reads=1 writes=2\nread_hits=1 \xff\xfe\x01\n", 1, -2, ""},
        {"reads=1 writes=2\n" + HitLine({"1", "", "3", "4", "5"}), 1, -2, ""},
        {std::string(5000, '9') + good, 1, -2, ""},
        {std::string(40U << 20U, 'r'), 1, -2, ""},
        {good, 0, -1, "Incorrect FLASHCACHE_WRITE_MODE: 0"},
        {good, -1, -1, "Incorrect FLASHCACHE_WRITE_MODE: -1"},
        {good, 3, -1, "Incorrect FLASHCACHE_WRITE_MODE: 3"},
    };
    for (const auto& test : cases) {
        EXPECT_EQ(Read(test.file, test.mode), test.result) << test.file.substr(0, 80);
        EXPECT_EQ(spy::LoggedTexts().size(), test.logged.empty() ? 1U : 2U);
        EXPECT_EQ(spy::LoggedTexts().back(), test.logged.empty() ? kDetected : test.logged);
        EXPECT_EQ(counters_.Reads, kUntouched);
        EXPECT_EQ(VLIBCErrGet(), 0);
    }
}

TEST_F(CountersTest, ReadsTheKernelsFileOfThatCache) {
    FLASHCACHE_COUNT_STAT counters{};
    EXPECT_EQ(VEMOFlashCacheCountStatGet(nullptr, "volume_1", 1, &counters), -1);
    EXPECT_EQ(VEMOFlashCacheCountStatGet("md3", nullptr, 1, &counters), -1);
    EXPECT_EQ(VEMOFlashCacheCountStatGet("md3", "volume_1", 1, nullptr), -1);
    EXPECT_THAT(spy::LoggedTexts(), IsEmpty());
    const std::string longName(100, 's');
    EXPECT_EQ(VEMOFlashCacheCountStatGet("md3", longName.c_str(), 1, &counters), -1);
    EXPECT_THAT(spy::LoggedTexts(),
                ElementsAre("Failed to open " + ("/proc/flashcache/md3+" + longName).substr(0, 63) +
                            " from flashcache_stats, Error=No such file or directory"));

    CreateCache();
    WriteBlocks(kCache, 8);
    WriteBlocks(kCache, 4, 'b');
    ASSERT_EQ(VEMOFlashCacheCountStatGet("md3", "volume_1", 1, &counters), 0);
    EXPECT_EQ(counters.Writes, 12U);
    EXPECT_EQ(counters.WriteMissSSD, 8U);
    EXPECT_EQ(counters.WriteHits, 4U);
    EXPECT_EQ(counters.WriteHitPercent, 100U);
}

}  // namespace
