// Files and bytes by age.
#pragma once

#include <sys/stat.h>

#include <array>
#include <cstdint>
#include <ctime>

namespace flashcache {

inline constexpr std::size_t kDays = 7;
inline constexpr std::size_t kLevels = 4;
inline constexpr int64_t kSecondsPerDay = 86400;

// What a run counts. Times in seconds since the epoch, sizes in bytes occupied on disk.
struct FileAges {
    std::array<int64_t, kDays> dayThresholds{};  // today's local midnight, and the midnights before it
    std::array<uint64_t, kDays> dayFiles{};
    std::array<uint64_t, kDays> dayBytes{};
    std::array<int64_t, kLevels> levelThresholds{};
    std::array<uint64_t, kLevels> levelBytes{};
};

// Nothing counted yet, ages reckoned from the day that `local` is in.
FileAges StartAges(const tm& local) noexcept;

// Counts one file under the newest of its times.
void CountFile(FileAges& ages, const struct stat& status) noexcept;

}  // namespace flashcache
