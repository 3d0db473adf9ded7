// What the tests of the file statistics share: a volume, a clock that stands still, and what a run counted.
#pragma once

#include <array>
#include <cstdint>
#include <ctime>
#include <string>
#include <vector>

#include "support/library_test.h"
#include "support/test_volume.h"

inline constexpr const char* kMarker = "/tmp/flashcache_file_statistics_processing";
inline constexpr const char* kStatistics = "/etc/flashcache_file_statistics";

// What the library's time() tells. The tests live in 2096: a file's status-change time, which cannot be set,
// is older than every time that they give it.
extern time_t fixedNow;

// What a sectioned run wrote.
struct Counted {
    std::array<uint64_t, 7> files{};
    std::array<uint64_t, 7> bytes{};
    std::array<uint64_t, 4> levels{};
};

class FileStatisticsTest : public LibraryTest {
  protected:
    void SetUp() override {
        std::filesystem::remove(kStatistics);
        MountVolume();
        SetZone("UTC0");
        fixedNow = At("2096-06-15 14:30:00");
    }
    void TearDown() override { UnmountVolume(); }
    static void SetZone(const char* zone);
    // Seconds since the epoch of a local time; where the clock showed it twice, of the first.
    static time_t At(const char* local);
    // Gives a file or link this time of last access and modification.
    static void Date(const std::string& path, time_t time);
    static void MakeDated(const std::string& path, time_t time, std::size_t bytes = 0);
    // Runs over the volume and reads what was counted.
    static Counted Count();
};
