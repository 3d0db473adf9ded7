// File statistics: what their modules share.
#pragma once

#include <ctime>

#include "common/handle.h"
#include "file_statistics/file_ages.h"
#include "vemoflashcache.h"

namespace flashcache {

inline constexpr const char* kMarkerFile = "/tmp/flashcache_file_statistics_processing";
inline constexpr const char* kStatisticsFile = "/etc/flashcache_file_statistics";
inline constexpr std::size_t kTextSize = 1024;

using Process = Handle<VLIBC_PROC, VLIBCProcFree>;

// Walks a volume and counts its files by age, from the day that `local` is in. The result is the thread's
// one set of accumulators, which its next walk overwrites; NULL when the walk failed.
const FileAges* CountVolume(const tm& local, const char* volumePath);

// Reads statistics as FlashcacheFileStatisticsGetAndParse does; the out texts may be NULL. Returns 0, or -1
// with what came before the line that is none of the format.
int ParseStatistics(std::FILE* file, FLASHCACHE_FILE_STAT_DAY* days, int dayCount, char* volume,
                    int volumeSize, char* time, int timeSize);

}  // namespace flashcache
