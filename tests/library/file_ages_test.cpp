// Into which day and level a file falls, at the boundaries, in several zones.
#include "library/file_statistics_support.h"

namespace {

class FileAgesTest : public FileStatisticsTest {
  protected:
    struct Case {
        const char* newest;
        int day;  // -1: none
        std::size_t level;
    };
    // Makes a file for each case, each of another size, and compares what was counted.
    static void Expect(const std::vector<Case>& cases) {
        std::filesystem::remove_all("/volume1/share");
        Counted expected;
        for (std::size_t i = 0; i < cases.size(); ++i) {
            const uint64_t bytes = 4096ULL << i;
            MakeDated("/volume1/share/" + std::to_string(i), At(cases[i].newest), bytes);
            if (cases[i].day >= 0) {
                ++expected.files[static_cast<std::size_t>(cases[i].day)];
                expected.bytes[static_cast<std::size_t>(cases[i].day)] += bytes;
            }
            expected.levels[cases[i].level] += bytes;
        }
        const Counted counted = Count();
        EXPECT_EQ(counted.files, expected.files);
        EXPECT_EQ(counted.bytes, expected.bytes);
        EXPECT_EQ(counted.levels, expected.levels);
    }
};

TEST_F(FileAgesTest, DaysAndLevelsBeginAtLocalMidnight) {
    for (const char* zone : {"UTC0", "EST5EDT,M3.2.0,M11.1.0", "NZST-12NZDT,M9.5.0,M4.1.0/3", "NPT-5:45"}) {
        SCOPED_TRACE(zone);
        SetZone(zone);
        for (const char* now : {"2096-06-15 00:00:00", "2096-06-15 23:59:59"}) {
            SCOPED_TRACE(now);
            fixedNow = At(now);
            Expect({{"2096-06-15 00:00:00", 0, 0},
                    {"2096-06-14 23:59:59", 1, 1},
                    {"2096-06-11 00:00:00", 4, 1},
                    {"2096-06-09 00:00:00", 6, 1},
                    {"2096-06-08 23:59:59", -1, 2},
                    {"2096-05-17 00:00:00", -1, 2},
                    {"2096-05-16 23:59:59", -1, 3},
                    {"2096-06-16 00:00:00", 0, 0},
                    {"2120-01-01 00:00:00", 0, 0}});
        }
    }
}

// Today's midnight is reckoned as if the clock of now had been kept all day, and the days before it are 24
// hours each: an hour of a day when the clock was changed, and of those before it, counts for its neighbour.
TEST_F(FileAgesTest, DaysAroundAClockChangeAreTwentyFourHours) {
    const struct {
        const char* zone;
        const char* now;
        std::vector<Case> cases;
    } changes[] = {
        {"CET-1CEST,M3.5.0,M10.5.0/3",
         "2096-03-25 01:30:00",
         {{"2096-03-25 00:00:00", 0, 0}, {"2096-03-24 23:59:59", 1, 1}}},
        {"CET-1CEST,M3.5.0,M10.5.0/3",
         "2096-03-25 12:00:00",
         {{"2096-03-24 23:00:00", 0, 0}, {"2096-03-24 22:59:59", 1, 1}, {"2096-03-18 23:00:00", 6, 1}}},
        {"CET-1CEST,M3.5.0,M10.5.0/3",
         "2096-10-28 12:00:00",
         {{"2096-10-28 01:00:00", 0, 0}, {"2096-10-28 00:59:59", 1, 1}, {"2096-10-27 00:59:59", 2, 1}}},
        {"CET-1CEST,M3.5.0,M10.5.0/3",
         "2096-10-30 12:00:00",
         {{"2096-10-30 00:00:00", 0, 0}, {"2096-10-27 01:00:00", 3, 1}, {"2096-10-27 00:59:59", 4, 1}}},
        {"EST5EDT,M3.2.0,M11.1.0",
         "2096-03-11 12:00:00",
         {{"2096-03-10 23:00:00", 0, 0}, {"2096-03-10 22:59:59", 1, 1}}},
        {"EST5EDT,M3.2.0,M11.1.0",
         "2096-11-04 12:00:00",
         {{"2096-11-04 01:00:00", 0, 0}, {"2096-11-04 00:59:59", 1, 1}}},
    };
    for (const auto& change : changes) {
        SCOPED_TRACE(change.now);
        SetZone(change.zone);
        fixedNow = At(change.now);
        Expect(change.cases);
    }
}

TEST_F(FileAgesTest, TheNewestOfAFilesThreeTimesCounts) {
    const std::string path = "/volume1/share/file";
    const timespec today{fixedNow, 0};
    const timespec longAgo{0, 0};
    const timespec pairs[][2] = {{today, longAgo}, {longAgo, today}};
    for (const auto& accessAndModification : pairs) {
        MakeFile(path);
        ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), accessAndModification, 0), 0);
        EXPECT_EQ(Count().files[0], 1U);
    }
    Date(path, 0);  // which changed the status just now
    struct stat status{};
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    for (const std::size_t daysLater : {0U, 1U, 6U}) {
        fixedNow = status.st_ctime + static_cast<time_t>(daysLater) * 86400;
        EXPECT_EQ(Count().files[daysLater], 1U);
    }
}

}  // namespace
