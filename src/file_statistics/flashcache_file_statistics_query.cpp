// Reading file statistics back, and whether a run is in progress.

#include <signal.h>
#include <unistd.h>

#include <cinttypes>
#include <cstdio>
#include <cstdlib>

#include "common/guard.h"
#include "common/handle.h"
#include "common/line_reader.h"
#include "common/log.h"
#include "common/own_file.h"
#include "common/text.h"
#include "file_statistics/file_statistics.h"

namespace flashcache {
namespace {

// ---- The plain format ----

void StoreText(const char* text, char* out, int size) noexcept {
    if (out != nullptr && size > 0) {
        CopyOut(text, out, size);
    }
}

// A line such as "Day=2026-11-24 FileCount=12 FileSizeSum=49152 Byte"; false when not even the year is
// there.
bool ParseDay(const char* line, FLASHCACHE_FILE_STAT_DAY& day) noexcept {
    FLASHCACHE_FILE_STAT_DAY parsed{};
    if (std::sscanf(line, "Day=%d-%d-%d FileCount=%" SCNu64 " FileSizeSum=%" SCNu64, &parsed.Year,
                    &parsed.Month, &parsed.Day, &parsed.FileCount, &parsed.FileSizeSum) < 1) {
        return false;
    }
    day = parsed;
    return true;
}

// Reads one line of the form `format`, whose value is at most 1023 characters; "" when there is no line.
bool ReadTextLine(LineReader& lines, const char* format, char (&value)[kTextSize]) {
    value[0] = '\0';
    const char* line = lines.Next();
    return line == nullptr || std::sscanf(line, format, value) == 1;
}

int ReadDays(LineReader& lines, FLASHCACHE_FILE_STAT_DAY* days, int dayCount) {
    for (int filled = 0; filled < dayCount; ++filled) {
        const char* line = lines.Next();
        if (line == nullptr) {
            break;
        }
        if (!ParseDay(line, days[filled])) {
            LogError()("Fail to sscanf() in FlashcacheFileStatisticsGetAndParse()");
            return -1;
        }
    }
    return 0;
}

// The statistics file, empty (with its code) when it cannot be read.
File OpenStatistics() {
    if (access(kStatisticsFile, R_OK) != 0) {
        LogError()("Fail to access() [%s] in FlashcacheFileStatisticsGetAndParse()", kStatisticsFile);
        return File();
    }
    File file(std::fopen(kStatisticsFile, "re"));
    if (!file) {
        SetError(VLIBC_ERR_OPEN_FAILED);
    }
    return file;
}

// ---- Whether a run is in progress ----

bool ReadMarkerKey(const char* key, char* value, int size) noexcept {
    if (VLIBCFileGetKeyValue(kMarkerFile, key, value, size, 0) <= 0) {
        LogPlatformError()("Fail to get key [%s] from [%s]. ", key, kMarkerFile);
        return false;
    }
    return true;
}

// Guards against a marker whose process died and whose pid another program has now.
bool IsRunBy(pid_t pid, const char* cmd) noexcept {
    if (pid <= 0 || kill(pid, 0) != 0) {
        return false;
    }
    const Process process(VLIBCProcGetByPid(pid));
    if (!process) {
        LogError()("Fail to VLIBCProcGetByPid in FlashcacheFileStatisticsIsProcessing()");
        return false;
    }
    return StartsWith(cmd, process->cmd);
}

int IsProcessing(char* volumeId, int size) noexcept {
    if (LookForOurs(kMarkerFile) != Found::kOurs || access(kMarkerFile, R_OK) != 0) {
        return 0;
    }
    char pid[kTextSize] = "";
    char cmd[kTextSize] = "";
    if (!ReadMarkerKey("pid", pid, sizeof pid) || !ReadMarkerKey("cmd", cmd, sizeof cmd)) {
        return 0;
    }
    if (volumeId != nullptr && size >= 1 && !ReadMarkerKey("volume_id", volumeId, size)) {
        return 0;
    }
    return IsRunBy(static_cast<pid_t>(std::strtol(pid, nullptr, 10)), cmd) ? 1 : 0;
}

}  // namespace

int ParseStatistics(std::FILE* file, FLASHCACHE_FILE_STAT_DAY* days, int dayCount, char* volume,
                    int volumeSize, char* time, int timeSize) {
    LineReader lines(file);
    char value[kTextSize];
    if (!ReadTextLine(lines, "Volume=%1023[^\n]", value)) {
        LogError()("Fail to parse volume name!");
        return -1;
    }
    StoreText(value, volume, volumeSize);
    if (!ReadTextLine(lines, "Time=%1023[^\n]", value)) {
        LogError()("Fail to parse time!");
        return -1;
    }
    StoreText(value, time, timeSize);
    return ReadDays(lines, days, dayCount);
}

}  // namespace flashcache

using namespace flashcache;

int FlashcacheFileStatisticsGetAndParse(FLASHCACHE_FILE_STAT_DAY* days, int dayCount, char* volume,
                                        int volumeSize, char* time, int timeSize) {
    if (days == nullptr || dayCount < static_cast<int>(kDays) || volumeSize < 0 || timeSize < 0) {
        SetError(VLIBC_ERR_BAD_PARAMETER);
        return -1;
    }
    return Guarded(-1, [&] {
        const File file = OpenStatistics();
        return file ? ParseStatistics(file.get(), days, dayCount, volume, volumeSize, time, timeSize) : -1;
    });
}

int FlashcacheFileStatisticsIsProcessing(void) {
    return IsProcessing(nullptr, 0);
}

int FlashcacheCheckFileStatisticsProgressFile(char* volumeId, int size) {
    return IsProcessing(volumeId, size);
}

int FlashcacheFileStatisticsDataIsExist(void) {
    return access(kStatisticsFile, R_OK) == 0 ? 1 : 0;
}
