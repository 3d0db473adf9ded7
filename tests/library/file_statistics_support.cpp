#include "library/file_statistics_support.h"

#include <dlfcn.h>

#include <cinttypes>
#include <cstdio>

time_t fixedNow;

extern "C" time_t time(time_t* out) {
    if (out != nullptr) {
        *out = fixedNow;
    }
    return fixedNow;
}

void FileStatisticsTest::SetZone(const char* zone) {
    setenv("TZ", zone, 1);
    tzset();
}

time_t FileStatisticsTest::At(const char* local) {
    tm fields{};
    EXPECT_NE(strptime(local, "%Y-%m-%d %H:%M:%S", &fields), nullptr) << local;
    tm summer = fields;
    summer.tm_isdst = 1;
    const time_t first = mktime(&summer);
    fields.tm_isdst = -1;
    return summer.tm_isdst == 1 ? first : mktime(&fields);
}

void FileStatisticsTest::Date(const std::string& path, time_t time) {
    const timespec times[] = {{time, 0}, {time, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW), 0) << path;
}

void FileStatisticsTest::MakeDated(const std::string& path, time_t time, std::size_t bytes) {
    MakeFile(path, bytes);
    Date(path, time);
}

Counted FileStatisticsTest::Count() {
    std::filesystem::remove(kStatistics);
    EXPECT_EQ(FlashcacheDoStatistics("volume_1", kVolume), 0);
    Counted counted;
    std::istringstream text(ReadWhole(kStatistics));
    std::size_t day = 0;
    for (std::string line; std::getline(text, line);) {
        unsigned level = 0;
        uint64_t bytes = 0;
        if (std::sscanf(line.c_str(), "Level_%u=%" SCNu64, &level, &bytes) == 2 && level < 4) {
            counted.levels[level] = bytes;
        } else if (day < 7 && std::sscanf(line.c_str(), "%*d-%*d-%*d=%" SCNu64 ",%" SCNu64,
                                          &counted.files[day], &counted.bytes[day]) == 2) {
            ++day;
        }
    }
    EXPECT_EQ(day, 7U);
    return counted;
}
