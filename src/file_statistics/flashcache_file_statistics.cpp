// Counting the files of a volume by age.

#include <unistd.h>

#include <cinttypes>
#include <cstdio>
#include <optional>
#include <string>

#include "common/guard.h"
#include "common/handle.h"
#include "common/log.h"
#include "common/own_file.h"
#include "common/text.h"
#include "file_statistics/file_statistics.h"
#include "vemoflashcache.h"

namespace flashcache {
namespace {

// ---- The marker of a run in progress ----

bool SetMarkerKey(const char* key, const char* value) noexcept {
    if (VLIBCFileSetKeyValue(kMarkerFile, key, value, 0) < 0) {
        LogPlatformError()("Fail to set [%s] = [%s] to [%s]. ", key, value, kMarkerFile);
        return false;
    }
    return true;
}

// Tells other processes of a run for as long as it lasts.
class Marker {
  public:
    Marker() = default;
    Marker(const Marker&) = delete;
    Marker& operator=(const Marker&) = delete;
    ~Marker() {
        if (ours_) {
            unlink(kMarkerFile);
        }
    }

    // volumeId: NULL for a run of the plain format. False when another run has a marker, or on failure.
    bool Write(const char* volumeId) {
        if (!WriteKeys(volumeId)) {
            LogError()("Fail to write statistics process file.");
            return false;
        }
        return true;
    }

  private:
    bool WriteKeys(const char* volumeId) {
        const Claim claim = ClaimFile(kMarkerFile, 0644);
        if (claim == Claim::kOurs) {
            LogError()("%s already exists, file statistics is processing.", kMarkerFile);
        }
        ours_ = claim == Claim::kMade;
        if (!ours_) {
            return false;
        }
        const Process self(VLIBCProcGetByPid(getpid()));
        if (!self) {
            LogPlatformError()("Fail to VLIBCProcGetByPid in FlashcacheFileStatistics(). ");
            return false;
        }
        return SetMarkerKey("pid", FormatCut(kTextSize, "%d", getpid()).c_str()) &&
               SetMarkerKey("cmd", self->cmd) && (volumeId == nullptr || SetMarkerKey("volume_id", volumeId));
    }

    bool ours_ = false;
};

// ---- Times as texts ----

// When a run began. `run` names the run in messages.
struct Start {
    const char* run;
    time_t now;
    tm local;
};

std::optional<time_t> ReadTime(const char* run) noexcept {
    const time_t now = time(nullptr);
    if (now == static_cast<time_t>(-1)) {
        LogError()("Fail to time() in %s\n", run);
        return std::nullopt;
    }
    return now;
}

std::optional<Start> LocalStart(const char* run, time_t now) noexcept {
    Start start{run, now, {}};
    if (localtime_r(&now, &start.local) == nullptr) {
        LogError()("Fail to localtime_r() in %s\n", run);
        return std::nullopt;
    }
    return start;
}

// Empty on failure.
std::string FormatTime(const char* format, const tm& local) {
    std::string text(kTextSize, '\0');
    text.resize(std::strftime(text.data(), text.size(), format, &local));
    return text;
}

// "2026-11-24 17:05"; empty (logged) on failure.
std::string RunTimeText(const Start& start) {
    std::string text = FormatTime("%F %H:%M", start.local);
    if (text.empty()) {
        LogError()("Fail to get Time");
    }
    return text;
}

// The date of `day` days before the run; empty (logged) on failure.
std::string DayText(const Start& start, std::size_t day) {
    const time_t time = start.now - static_cast<time_t>(day) * kSecondsPerDay;
    tm local{};
    if (localtime_r(&time, &local) == nullptr) {
        LogError()("Fail to localtime_r() in %s", start.run);
        return {};
    }
    std::string text = FormatTime("%F", local);
    if (text.empty()) {
        LogError()("Fail to strftime() in %s", start.run);
    }
    return text;
}

// ---- The plain format ----

// `line` is cut to the size of its buffer. Writes at once, so that a full disk is seen here.
bool WriteLine(const File& file, const std::string& line) noexcept {
    if (std::fwrite(line.data(), 1, line.size(), file.get()) < line.size()) {
        SetError(VLIBC_ERR_SHORT_WRITE);
        return false;
    }
    return true;
}

bool WriteDays(const File& file, const Start& start, const FileAges& ages) {
    for (std::size_t day = 0; day < kDays; ++day) {
        const std::string date = DayText(start, day);
        if (date.empty() ||
            !WriteLine(file,
                       FormatCut(kTextSize, "Day=%s FileCount=%" PRIu64 " FileSizeSum=%" PRIu64 " Byte\n",
                                 date.c_str(), ages.dayFiles[day], ages.dayBytes[day]))) {
            return false;
        }
    }
    return true;
}

bool WriteStatistics(const char* volumeName, const Start& start, const FileAges& ages) {
    const File file(std::fopen(kStatisticsFile, "we"));
    if (!file) {
        SetError(VLIBC_ERR_OPEN_FAILED);
        return false;
    }
    std::setvbuf(file.get(), nullptr, _IONBF, 0);
    if (!WriteLine(file, FormatCut(kTextSize, "Volume=%s\n", volumeName))) {
        return false;
    }
    const std::string time = RunTimeText(start);
    return !time.empty() && WriteLine(file, FormatCut(kTextSize, "Time=%s\n", time.c_str())) &&
           WriteDays(file, start, ages);
}

bool RunPlain(const char* volumeName, const char* volumePath) {
    constexpr const char* kRun = "FlashcacheFileStatistics";
    const std::optional<time_t> now = ReadTime(kRun);
    if (!now) {
        return false;
    }
    if (volumeName == nullptr) {
        LogError()("Fail to get volume Name");
        volumeName = "";
    }
    const std::optional<Start> start = LocalStart(kRun, *now);
    Marker marker;
    if (!start || !marker.Write(nullptr)) {
        return false;
    }
    const FileAges* ages = CountVolume(start->local, volumePath);
    return ages != nullptr && WriteStatistics(volumeName, *start, *ages);
}

// ---- The sectioned format ----

bool SetKey(StringHash& keys, const std::string& key, const std::string& value) noexcept {
    return VLIBCSzHashSetValue(keys.address(), key.c_str(), value.c_str()) == 0;
}

bool CollectKeys(StringHash& keys, const Start& start, const std::string& time, const FileAges& ages) {
    if (!SetKey(keys, "Time", time)) {
        return false;
    }
    for (std::size_t day = 0; day < kDays; ++day) {
        const std::string date = DayText(start, day);
        if (date.empty() ||
            !SetKey(keys, date,
                    FormatCut(kTextSize, "%" PRIu64 ",%" PRIu64, ages.dayFiles[day], ages.dayBytes[day]))) {
            return false;
        }
    }
    for (std::size_t level = 0; level < kLevels; ++level) {
        if (!SetKey(keys, FormatCut(kTextSize, "Level_%d", static_cast<int>(level)),
                    FormatCut(kTextSize, "%" PRIu64, ages.levelBytes[level]))) {
            return false;
        }
    }
    return true;
}

bool WriteSection(const char* volumeId, const Start& start, StringHash& keys, const FileAges& ages) {
    const std::string time = RunTimeText(start);
    if (time.empty()) {
        return false;
    }
    if (VLIBCFileExist(kStatisticsFile) == 0) {
        VLIBCFileTouch(kStatisticsFile);
    }
    if (VLIBCFileRemoveSection(kStatisticsFile, volumeId) < 0) {
        LogPlatformError()("Fail to remove section [%s] of [%s]. ", volumeId, kStatisticsFile);
        return false;
    }
    if (!CollectKeys(keys, start, time, ages)) {
        return false;
    }
    if (VLIBCFileAddSection(kStatisticsFile, volumeId, keys.get(), nullptr) <= 0) {
        LogPlatformError()("Fail to set section [%s] of [%s]. ", volumeId, kStatisticsFile);
        return false;
    }
    return true;
}

bool RunSectioned(const char* volumeId, const char* volumePath) {
    constexpr const char* kRun = "FlashcacheDoStatistics";
    StringHash keys(VLIBCSzHashAlloc(512));
    Marker marker;
    if (!keys || !marker.Write(volumeId)) {
        return false;
    }
    const std::optional<time_t> now = ReadTime(kRun);
    const std::optional<Start> start = now ? LocalStart(kRun, *now) : std::nullopt;
    if (!start) {
        return false;
    }
    const FileAges* ages = CountVolume(start->local, volumePath);
    return ages != nullptr && WriteSection(volumeId, *start, keys, *ages);
}

}  // namespace
}  // namespace flashcache

using namespace flashcache;

int FlashcacheFileStatistics(const char* volumeName, const char* volumePath) {
    if (volumePath == nullptr) {
        SetError(VLIBC_ERR_BAD_PARAMETER);
        return -1;
    }
    return Guarded(-1, [&] { return RunPlain(volumeName, volumePath) ? 0 : -1; });
}

int FlashcacheDoStatistics(const char* volumeId, const char* volumePath) {
    if (volumeId == nullptr || volumePath == nullptr) {
        SetError(VLIBC_ERR_BAD_PARAMETER);
        return -1;
    }
    return Guarded(-1, [&] { return RunSectioned(volumeId, volumePath) ? 0 : -1; });
}
