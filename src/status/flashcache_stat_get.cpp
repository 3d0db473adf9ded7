// The live caches: their status records, counters and devices.

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "common/guard.h"
#include "common/line_reader.h"
#include "common/log.h"
#include "common/own_file.h"
#include "common/text.h"
#include "config/config.h"
#include "status/cache_devices.h"
#include "status/status.h"

namespace flashcache {
namespace {

constexpr const char* kMapperDir = "/dev/mapper";
constexpr const char* kStatsEntry = "flashcache_stats";
constexpr const char* kStatsOverride = "/tmp/flashcache_stats";
constexpr std::size_t kLineSize = 1024;
constexpr std::size_t kSmallSize = 64;

ChildStream OpenTable(const char* cacheDevPath, Where where = Where::current()) {
    ChildStream table(VLIBCPopen("/sbin/dmsetup", "r", "table", cacheDevPath, nullptr));
    if (!table) {
        __extension__ LogError(where)("Failed to popen cmd = '%s', Error=%m",
                                      FormatCut(kLineSize, "/sbin/dmsetup table %s", cacheDevPath).c_str());
    }
    return table;
}

// ---- One record ----

// The first word of a knob file, empty on failure.
std::string FlashCacheProcSysValueRead(const std::string& path) {
    const File file(std::fopen(path.c_str(), "re"));
    if (!file) {
        __extension__ LogError()("Failed to open %s from %s, Error=%m", path.c_str(), kStatsEntry);
        return {};
    }
    char word[128] = "";
    if (std::fscanf(file.get(), "%127s", word) != 1) {
        __extension__ LogError()("Failed to read %s from %s, Error=%m", path.c_str(), kStatsEntry);
    }
    return word;
}

void ReadKnobs(FLASHCACHE_STAT& record, const char* ssdName, const char* spaceName) {
    const std::string directory =
        FormatCut(kSmallSize, "%s_%s+%s", "/proc/sys/dev/flashcache", ssdName, spaceName);
    const auto read = [&](const char* knob, StatField field) {
        const std::string path = FormatCut(kSmallSize, "%s/%s", directory.c_str(), knob);
        FlashCacheStatFieldSet(&record, field, FlashCacheProcSysValueRead(path).c_str());
    };
    read("reclaim_policy", StatField::kReclaimPolicy);
    if (record.WriteMode == FLASHCACHE_WRITE_BACK) {
        read("fallow_delay", StatField::kFallowDelay);
        read("dirty_thresh_pct", StatField::kDirtyThreshPct);
    }
}

bool FillCounters(FLASHCACHE_STAT& record, const char* ssdName, const char* spaceName) noexcept {
    const int result = VEMOFlashCacheCountStatGet(ssdName, spaceName, record.WriteMode, &record.CountStat);
    if (result == -2) {
        LogError()("Parser error to get proc flashcache stat from %s", kStatsEntry);
    } else if (result != 0) {
        LogError()("Failed to get proc flashcache stat from %s", kStatsEntry);
    }
    return result == 0;
}

// ---- Finding cache devices ----

// False when glob failed in a way without a message of its own.
bool LogGlobFailure(int result) noexcept {
    switch (result) {
        case GLOB_ABORTED:
            __extension__ LogError()("Fail to glob read from path %s, Error=%m", kCacheDevPattern);
            return true;
        case GLOB_NOSPACE:
            __extension__ LogError()("Fail to alloc glob function from path %s, Error=%m", kCacheDevPattern);
            return true;
        case GLOB_NOMATCH:
        case 0:
            __extension__ LogError()("Can't find flashcache device from path%s, Error=%m", kCacheDevPattern);
            return true;
        default:
            return false;
    }
}

int DescribeDevices(const CacheDevices& devices, StatList& list) {
    int count = 0;
    FLASHCACHE_STAT** tail = list.address();
    for (std::size_t i = 0; i < devices.size(); ++i) {
        const int created = FlashCacheStatCreate(devices[i], tail);
        if (created < 0) {
            __extension__ LogError()("Fail to enum all stat, Error=%m");
            return -1;
        }
        if (created > 0) {
            tail = &(*tail)->Next;
            ++count;
        }
    }
    return count;
}

int EnumerateDevices(StatList& list) {
    const CacheDevices devices(GLOB_ERR);
    if (devices.result() == GLOB_NOMATCH) {
        return 0;
    }
    if (devices.result() == 0 && devices.size() > 0) {
        return DescribeDevices(devices, list);
    }
    if (!LogGlobFailure(devices.result())) {
        LogError()("error, globRet=%d", devices.result());
    }
    return -1;
}

int FindCachePath(const CacheDevices& devices, const char* path, char* out, int outSize) {
    // Kept across lines and devices: a line that names no device changes nothing.
    char ssd[4096] = "";
    char disk[4096] = "";
    for (std::size_t i = 0; i < devices.size(); ++i) {
        const ChildStream table = OpenTable(devices[i]);
        if (!table) {
            return -1;
        }
        LineReader lines(table.get(), kLineSize - 1);
        while (const char* line = lines.Next()) {
            std::sscanf(line, "\tssd de%*[^(](%4095[^)])%*[^a-zA-Z]disk de%*[^(](%4095[^)]", ssd, disk);
            if (StartsWith(ssd, path) || StartsWith(disk, path)) {
                CopyOut(devices[i], out, outSize);
                return 1;
            }
        }
    }
    return 0;
}

// ---- The searches of VEMOFlashCacheStatGet ----

int StatOfAll(StatList& list) {
    const int count = EnumerateDevices(list);
    if (count < 0) {
        __extension__ LogError()("Fail to enum all stat, Error=%m");
    }
    return count;
}

int StatByCacheDev(const char* cacheDevPath, StatList& list) {
    if (cacheDevPath == nullptr) {
        SetError(VLIBC_ERR_BAD_PARAMETER);
        return -1;
    }
    if (FlashCacheStatCreate(cacheDevPath, list.address()) < 1) {
        __extension__ LogError()("Fail to get stat of [%s], Error=%m", cacheDevPath);
        return -1;
    }
    return 1;
}

int StatByDevice(const char* path, StatList& list) {
    if (path == nullptr) {
        SetError(VLIBC_ERR_BAD_PARAMETER);
        return -1;
    }
    char cacheDevPath[kSmallSize] = "";
    const int found = VEMOFlashcacheGetCachePath(path, cacheDevPath, sizeof cacheDevPath);
    if (found < 0) {
        __extension__ LogError()("Fail to get cachedev path, Error=%m");
    }
    if (found < 1) {
        return -1;
    }
    const int created = FlashCacheStatCreate(cacheDevPath, list.address());
    if (created < 0) {
        __extension__ LogError()("Fail to enum stat from %s, Error=%m", cacheDevPath);
    }
    return created;
}

int StatBySearch(const FLASHCACHE_STAT_SEARCH* search, StatList& list) {
    if (search == nullptr) {
        return StatOfAll(list);
    }
    switch (search->type) {
        case FLASHCACHE_SEARCH_BY_CACHE_DEV_PATH:
            return StatByCacheDev(search->CacheDevPath, list);
        case FLASHCACHE_SEARCH_BY_SSD_DEV_PATH:
            return StatByDevice(search->SSDDevPath, list);
        case FLASHCACHE_SEARCH_BY_SPACE_PATH:
            return StatByDevice(search->SpacePath, list);
        default:
            SetError(VLIBC_ERR_BAD_PARAMETER);
            return -1;
    }
}

// 1 when cache devices may be looked for, 0 when there can be none, -1 on failure.
int CheckMapperDir() noexcept {
    struct stat status{};
    if (stat(kMapperDir, &status) != 0) {
        if (errno == ENOENT) {
            return 0;
        }
        LogError()("Fail to do stat to [%s]", kMapperDir);
        return -1;
    }
    if (!S_ISDIR(status.st_mode)) {
        LogError()("[%s] is not a directory!?", kMapperDir);
        return -1;
    }
    return 1;
}

// ---- The counters file ----

struct CountersFile {
    std::string path;
    File file;
};

CountersFile OpenCounters(const char* ssdName, const char* spaceName) {
    if (LookForOurs(kStatsOverride) == Found::kOurs) {
        LogError()(
            "Detect that /tmp/flashcache_stats exists, so VEMOFlashCacheCountStatGet get info from it.");
        return {kStatsOverride, OpenOurFile(kStatsOverride)};
    }
    std::string path = ProcEntryPath(kSmallSize, ssdName, spaceName, kStatsEntry);
    File file(std::fopen(path.c_str(), "re"));
    return {std::move(path), std::move(file)};
}

int ReadCounters(const CountersFile& source, FLASHCACHE_WRITE_MODE writeMode,
                 FLASHCACHE_COUNT_STAT& counters) {
    const auto& [path, file] = source;
    if (!file) {
        __extension__ LogError()("Failed to open %s from %s, Error=%m", path.c_str(), kStatsEntry);
        return -1;
    }
    LineReader lines(file.get(), kLineSize - 1);
    const char* line = lines.Next();
    if (line == nullptr) {
        LogError()("Failed to get line from %s", path.c_str());
        return -2;
    }
    if (!ParseIoCounts(line, counters)) {
        return -2;
    }
    line = lines.Next();
    if (line == nullptr) {
        LogError()("Failed to get line from %s", path.c_str());
        return -2;
    }
    if (!HasCounters(writeMode)) {
        LogError()("Incorrect FLASHCACHE_WRITE_MODE: %d", writeMode);
        return -1;
    }
    return ParseHitCounts(line, writeMode, counters) ? 0 : -2;
}

}  // namespace

int FlashCacheStatFieldSet(FLASHCACHE_STAT* record, StatField field, const char* text) {
    if (record == nullptr || text == nullptr) {
        SetError(VLIBC_ERR_BAD_PARAMETER);
        return -1;
    }
    if (!ConvertStatField(*record, field, text)) {
        __extension__ LogError()("Failed to Get FlashCache Mode form %s, Error=%m", kStatsEntry);
    }
    return 0;
}

int FlashCacheDmTableParse(const char* cacheDevPath, FLASHCACHE_STAT* record) {
    const ChildStream output = OpenTable(cacheDevPath);
    if (!output) {
        return -1;
    }
    DmTable table;
    bool printed = false;
    LineReader lines(output.get(), kLineSize - 1);
    while (const char* line = lines.Next()) {
        printed = true;
        ParseDmTableLine(line, table);
    }
    if (std::ferror(output.get()) != 0) {  // which must not pass for a device without a table
        __extension__ LogError()("Failed to read the table of %s, Error=%m", cacheDevPath);
        return -1;
    }
    record->SupportPin = table.supportPin;
    LogDebug()("Support pin = %d", record->SupportPin);
    if (!printed) {
        return 0;
    }
    FlashCacheStatFieldSet(record, StatField::kSSDDevPath, table.ssdDevPath);
    FlashCacheStatFieldSet(record, StatField::kSpacePath, table.spacePath);
    FlashCacheStatFieldSet(record, StatField::kWriteMode, table.writeMode);
    FlashCacheStatFieldSet(record, StatField::kTotalBlocks, table.totalBlocks);
    FlashCacheStatFieldSet(record, StatField::kCachedBlocks, table.cachedBlocks);
    FlashCacheStatFieldSet(record, StatField::kBlockSizeKB, table.blockSizeKb);
    return 1;
}

int FlashCacheStatCreate(const char* cacheDevPath, FLASHCACHE_STAT** out) {
    if (access(cacheDevPath, F_OK) != 0) {
        return 0;
    }
    StatList record(static_cast<FLASHCACHE_STAT*>(std::calloc(1, sizeof(FLASHCACHE_STAT))));
    if (!record) {
        __extension__ LogError()("Failed to alloc FLASHCACHE_STAT from %s, Error=%m", kStatsEntry);
        __extension__ LogError()("Failed to create flashcache stat from %s, Error=%m", kStatsEntry);
        return -1;
    }
    record->WriteMode = -1;
    record->ReclaimPolicy = -1;
    const int parsed = FlashCacheDmTableParse(cacheDevPath, record.get());
    if (parsed < 0) {
        __extension__ LogError()("Failed to get dmsetup stat from %s, Error=%m", kStatsEntry);
    }
    if (parsed < 1) {
        return parsed;
    }
    const char* ssdName = VEMOFlashCacheGetShortDevName(record->SSDDevPath);
    const char* spaceName = ssdName == nullptr ? nullptr : VEMOFlashCacheGetShortDevName(record->SpacePath);
    if (spaceName == nullptr) {
        LogError()("Failed to parser SSD Path[%s] or Space Path[%s] for proc flashcache stat from %s",
                   record->SSDDevPath, record->SpacePath, kStatsEntry);
        return -1;
    }
    if (!FillCounters(*record.get(), ssdName, spaceName)) {
        return -1;
    }
    ReadKnobs(*record.get(), ssdName, spaceName);
    *out = record.release();
    return 1;
}

}  // namespace flashcache

using namespace flashcache;

int VEMOFlashCacheStatGet(const FLASHCACHE_STAT_SEARCH* search, FLASHCACHE_STAT** out) {
    if (out == nullptr) {
        SetError(VLIBC_ERR_BAD_PARAMETER);
        return -1;
    }
    return Guarded(-1, [&] {
        StatList list;
        int count = CheckMapperDir();
        if (count > 0) {
            count = StatBySearch(search, list);
        }
        if (count >= 0) {
            *out = list.release();
        }
        return count;
    });
}

void VEMOFlashCacheStatFree(FLASHCACHE_STAT** list) {
    if (list == nullptr) {
        return;
    }
    while (*list != nullptr) {
        FLASHCACHE_STAT* record = *list;
        *list = record->Next;
        std::free(record->SSDDevPath);
        std::free(record->SpacePath);
        std::free(record);
    }
}

int VEMOFlashcacheGetCachePath(const char* path, char* out, int outSize) {
    if (out == nullptr || outSize < 1 || path == nullptr) {
        SetError(VLIBC_ERR_BAD_PARAMETER);
        return -1;
    }
    return Guarded(-1, [&] {
        const CacheDevices devices(0);
        if (devices.result() == 0 && devices.size() > 0) {
            return FindCachePath(devices, path, out, outSize);
        }
        LogGlobFailure(devices.result());
        return -1;
    });
}

int VEMOFlashCacheCountStatGet(const char* ssdName, const char* spaceName, FLASHCACHE_WRITE_MODE writeMode,
                               FLASHCACHE_COUNT_STAT* out) {
    if (ssdName == nullptr || spaceName == nullptr || out == nullptr) {
        return -1;
    }
    return Guarded(-1, [&] {
        FLASHCACHE_COUNT_STAT counters{};
        const int result = ReadCounters(OpenCounters(ssdName, spaceName), writeMode, counters);
        if (result == 0) {
            ComputeHitPercents(counters);
            *out = counters;
        }
        return result;
    });
}
