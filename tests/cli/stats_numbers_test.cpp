// What is reckoned from the kernel's counters, with numbers that no kernel at hand shows.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

#include "output/csv.h"
#include "stats/sparkline.h"
#include "stats/view.h"

namespace cli {
namespace {

Reading At(int seconds, const char* counters, std::optional<std::uint64_t> dirty = 0) {
    Reading reading;
    reading.name = "c";
    reading.time = Reading::Clock::time_point(std::chrono::seconds(seconds));
    reading.counters = CountsOf(counters);
    reading.errors = CountsOf("write_disk_sync_errors=5\n");
    reading.blockSize = 65536;
    reading.totalBlocks = 1000;
    reading.dirtyBlocks = dirty;
    return reading;
}

// The value as CSV has it.
std::string In(const Record& record, const std::string& key) {
    for (const auto& field : record.fields) {
        if (field.key == key) {
            std::string line = CsvOf({{{field}}});
            line.pop_back();
            return line;
        }
    }
    return "no field " + key;
}

TEST(StatsNumbers, TakeWhatIsANumberFromTheKernelsText) {
    EXPECT_EQ(CountsOf("reads=1 writes=9223372036854775807\nread_hits=3"),
              (Counts{{"reads", 1}, {"writes", INT64_MAX}, {"read_hits", 3}}));
    EXPECT_EQ(CountsOf("a=-1 b=1x c= d e=9223372036854775808  f=7\n"), (Counts{{"a", -1}, {"f", 7}}));
    EXPECT_TRUE(CountsOf("").empty());
    EXPECT_FALSE(ReadCounts("../../nowhere", "none"));
    EXPECT_FALSE(ReadCounts("../..", "tmp")) << "can be opened, but not be read";
}

TEST(StatsNumbers, TellNoHitRateThatIsNone) {
    const struct {
        const char* counters;
        const char* hits;
        const char* percent;
    } cases[] = {
        {"reads=3 read_hits=2 uncached_sequential_reads=0", "2", "66.6"},
        {"reads=2000 read_hits=1999 uncached_sequential_reads=0", "1999", "99.9"},  // not 100
        {"reads=10 read_hits=5 uncached_sequential_reads=5", "5", "100"},
        {"reads=0 read_hits=0 uncached_sequential_reads=0", "0", ""},
        {"reads=5 read_hits=0 uncached_sequential_reads=5", "0", ""},
        {"reads=5 read_hits=0 uncached_sequential_reads=9", "0", ""},
        {"reads=3 read_hits=4 uncached_sequential_reads=0", "3", "100"},  // a hit ahead of its request
        {"reads=3 uncached_sequential_reads=0", "", ""},
        {"reads=3 read_hits=1", "1", ""},
        {"", "", ""},
    };
    for (const auto& one : cases) {
        const Record record = SinceLoad(At(0, one.counters));
        EXPECT_EQ(In(record, "read_hits"), one.hits) << one.counters;
        EXPECT_EQ(In(record, "read_hit_percent"), one.percent) << one.counters;
    }
    const Record writes =
        SinceLoad(At(0, "writes=10 write_hits=3 write_miss_ssd=4 uncached_sequential_writes=2"));
    EXPECT_EQ(In(writes, "write_hit_percent"), "87.5");
    EXPECT_EQ(In(writes, "reads"), "");
}

constexpr const char* kEarlier = "reads=100 read_hits=10 uncached_sequential_reads=0 cleanings=5";

TEST(StatsNumbers, OfAnIntervalCountWhatCameInIt) {
    const Reading before = At(10, kEarlier, 100);
    const Observed observed =
        Compare(At(14, "reads=140 read_hits=40 uncached_sequential_reads=0 cleanings=15", 60), before);
    EXPECT_EQ(observed.event, "");
    const Record record = Interval(observed.ToSpan());
    EXPECT_EQ(In(record, "interval_seconds"), "4");
    EXPECT_EQ(In(record, "reads_per_second"), "10");
    EXPECT_EQ(In(record, "interval_read_hit_percent"), "75");
    EXPECT_EQ(In(record, "writes_per_second"), "");
    EXPECT_EQ(In(record, "write_back_bytes_per_second"), "163840");
    EXPECT_EQ(In(record, "dirty_percent"), "6");
    EXPECT_EQ(In(record, "seconds_to_clean"), "6");
}

TEST(StatsNumbers, PromiseNoCleanCacheThatDoesNotGetClean) {
    const struct {
        std::optional<std::uint64_t> before;
        std::optional<std::uint64_t> now;
        const char* left;
    } cases[] = {{10, 0, "0"},  {0, 0, "0"},           {10, 10, ""},          {5, 10, ""},
                 {10, 9, "18"}, {std::nullopt, 9, ""}, {9, std::nullopt, ""}, {100000, 1, "1"}};
    for (const auto& one : cases) {
        const Observed observed = Compare(At(2, kEarlier, one.now), At(0, kEarlier, one.before));
        EXPECT_EQ(In(Interval(observed.ToSpan()), "seconds_to_clean"), one.left);
    }
}

TEST(StatsNumbers, OfCountersThatBeganAnewAreNotCompared) {
    const struct {
        const char* now;
        const char* event;
    } cases[] = {
        {kEarlier, ""},
        {"reads=200 read_hits=9 uncached_sequential_reads=0 cleanings=5", "reset"},
        {"reads=99 read_hits=50 uncached_sequential_reads=0 cleanings=50", "reset"},
        {"", "vanished"},
        // A percentage may fall.
        {"reads=100 read_hits=10 read_hit_percent=3 uncached_sequential_reads=0 cleanings=5", ""},
    };
    Reading before = At(0, kEarlier);
    before.counters["read_hit_percent"] = 10;
    before.errors = CountsOf("write_disk_sync_errors=9");  // a flush began a new count
    for (const auto& one : cases) {
        const Observed observed = Compare(At(5, one.now), before);
        EXPECT_EQ(observed.event, one.event) << one.now;
        const bool isCompared = *one.event == '\0';
        EXPECT_EQ(In(Interval(observed.ToSpan()), "reads_per_second"), isCompared ? "0" : "");
        EXPECT_EQ(EventText(observed).empty(), isCompared);
    }
    EXPECT_EQ(Compare(At(5, kEarlier), Gone("c")).event, "returned");
    EXPECT_EQ(Compare(Gone("c"), Gone("c")).event, "");
}

TEST(StatsFields, AreDescribedOnce) {
    std::set<std::string> keys;
    for (const auto& field : StatFields()) {
        EXPECT_TRUE(keys.insert(field.key).second) << field.key;
        EXPECT_EQ(std::string(field.key).find_first_not_of("abcdefghijklmnopqrstuvwxyz_"), std::string::npos);
        EXPECT_FALSE(std::string(field.meaning).empty()) << field.key;
        EXPECT_TRUE(field.counter != nullptr || field.take != nullptr) << field.key;
    }
    EXPECT_THROW(DescribedField("nothing", {}), std::logic_error);
}

TEST(Sparkline, ShowsTheCourseInThisLocalesCharacters) {
    const Course course = {0.0, 1.0, 50.0, std::nullopt, 100.0};
    EXPECT_EQ(Sparkline(course, 100, false), "_.= #");
    EXPECT_EQ(Sparkline(course, 100, true), "▁▂▅ █");
    EXPECT_EQ(Sparkline(course, 50, false), "_.# #");
    EXPECT_EQ(Sparkline({0.0, 0.0}, std::nullopt, false), "__");
    EXPECT_EQ(Sparkline(Newest(course, 3), 100, false), "= #");
    EXPECT_EQ(Sparkline(Newest(course, 7), 100, false), "  _.= #");
    Course kept;
    for (int i = 0; i < 5; ++i) {
        Add(kept, i, 3);
    }
    EXPECT_EQ(kept, (Course{2.0, 3.0, 4.0}));
}

TEST(Csv, QuotesWhatItMust) {
    const Record record{{{"name", "Name", "a,\"b\"\nc"},
                         {"size", "Size", std::uint64_t{1} << 40U, Format::kBytes},
                         {"share", "Share", 12.5, Format::kPercent},
                         {"none", "None", Value()},
                         {"flag", "Flag", true}}};
    EXPECT_EQ(CsvHeadingOf(record), "name,size,share,none,flag\n");
    EXPECT_EQ(CsvOf({record, record}),
              "\"a,\"\"b\"\"?c\",1099511627776,12.5,,true\n\"a,\"\"b\"\"?c\",1099511627776,12.5,,true\n");
}

}  // namespace
}  // namespace cli
