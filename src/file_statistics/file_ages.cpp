#include "file_statistics/file_ages.h"

#include <algorithm>

namespace flashcache {
namespace {

constexpr uint64_t kBlockBytes = 512;  // st_blocks counts these, whatever the file system's own blocks

// The first of `thresholds` that `time` has reached; their number when it has reached none.
template <std::size_t Count>
std::size_t FirstReached(const std::array<int64_t, Count>& thresholds, int64_t time) noexcept {
    std::size_t index = 0;
    while (index < Count && time < thresholds[index]) {
        ++index;
    }
    return index;
}

}  // namespace

FileAges StartAges(const tm& local) noexcept {
    tm midnight = local;
    midnight.tm_hour = 0;
    midnight.tm_min = 0;
    midnight.tm_sec = 0;
    const int64_t today = std::mktime(&midnight);
    FileAges ages;
    for (std::size_t day = 0; day < kDays; ++day) {
        ages.dayThresholds[day] = today - static_cast<int64_t>(day) * kSecondsPerDay;
    }
    // The last one is never reached before the first: level 3 is what reached none of the others.
    ages.levelThresholds = {today, today - 6 * kSecondsPerDay, today - 29 * kSecondsPerDay,
                            today + kSecondsPerDay};
    return ages;
}

void CountFile(FileAges& ages, const struct stat& status) noexcept {
    const int64_t newest =
        std::max({static_cast<int64_t>(status.st_mtime), static_cast<int64_t>(status.st_ctime),
                  static_cast<int64_t>(status.st_atime)});
    const uint64_t bytes = static_cast<uint64_t>(status.st_blocks) * kBlockBytes;
    const std::size_t day = FirstReached(ages.dayThresholds, newest);
    if (day < kDays) {
        ++ages.dayFiles[day];
        ages.dayBytes[day] += bytes;
    }
    ages.levelBytes[std::min(FirstReached(ages.levelThresholds, newest), kLevels - 1)] += bytes;
}

}  // namespace flashcache
