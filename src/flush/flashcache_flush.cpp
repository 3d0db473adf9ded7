// Flushing a cache before its removal, cancelling that, and the state recorded meanwhile.

#include <time.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>

#include "common/guard.h"
#include "common/handle.h"
#include "common/log.h"
#include "common/own_file.h"
#include "common/text.h"
#include "config/config.h"
#include "flush/flush.h"
#include "status/status.h"

namespace flashcache {
namespace {

constexpr const char* kDebugMarker = "/tmp/cache-debug-remove";
constexpr const char* kErrorsEntry = "flashcache_errors";
constexpr const char* kErrorsKey = "write_disk_sync_errors=";
constexpr time_t kPollSeconds = 5;

// The status of the live cache on this device, empty (with its code) when the path is bad or there is none.
StatList FindCache(const char* cacheDevPath, Where where = Where::current()) noexcept {
    StatList status;
    if (!IsCacheDevPath(cacheDevPath)) {
        SetError(VLIBC_ERR_BAD_PARAMETER, where);
    } else if (GetCacheStatus(cacheDevPath, status, where) < 0) {
        return StatList();
    }
    return status;
}

// ---- The recorded flush state ----

// The configuration entry of the cache on this SSD, empty (logged) when there is none.
ConfigList FindEntry(const char* ssdPath, Where where = Where::current()) noexcept {
    FLASHCACHE_CONFIG_SEARCH search{};
    search.type = FLASHCACHE_SEARCH_BY_SSD_DEV_PATH;
    search.SSDDevPath = ssdPath;
    ConfigList entry;
    if (VEMOFlashCacheConfigTmpGet(&search, entry.address()) < 1 || !entry) {
        LogError(where)("Fail to get config of SSD cache [%s]", ssdPath);
    }
    return entry;
}

bool IsRecorded(const char* ssdPath, FLASHCACHE_FLUSH_STATE state) noexcept {
    return VEMOFlashCacheIsRemoveInFlushState(ssdPath, state) == 1;
}

// ---- The flush ----

// The two devices of the cache that is flushed.
struct Devices {
    const char* ssd;
    const char* space;
};

enum class Outcome { kDone, kCancelled, kFailed };

void Pause() noexcept {
    timespec left{kPollSeconds, 0};
    while (nanosleep(&left, &left) != 0 && errno == EINTR) {
    }
}

bool RecordFlushing(const Devices& cache) noexcept {
    if (FlashCacheFlushStateSet(cache.ssd, FLASHCACHE_FLUSH_STATE_FLUSHING) != 0) {
        LogError()("Failed to set state of SSD cache [%s]", cache.ssd);
        return false;
    }
    return true;
}

// A cancellation that comes in between leaves another state behind: the flush is not done then.
bool RecordDone(const Devices& cache) noexcept {
    FlashCacheFlushStateSet(cache.ssd, FLASHCACHE_FLUSH_STATE_FLUSH_DONE);
    return IsRecorded(cache.ssd, FLASHCACHE_FLUSH_STATE_FLUSH_DONE);
}

FLASHCACHE_HANDLE_STATE SaveHandleState(const Devices& cache) noexcept {
    const FLASHCACHE_HANDLE_STATE saved = VEMOFlashCacheHandleStateGet(cache.ssd, cache.space);
    if (saved == FLASHCACHE_HANDLE_STATE_UNKNOWN) {
        LogError()("Failed to get original handle state");
    }
    return saved;
}

bool EnterFlushState(const Devices& cache) noexcept {
    if (VEMOFlashCacheHandleStateSet(cache.ssd, cache.space, FLASHCACHE_HANDLE_STATE_FLUSH) != 0) {
        LogError()("Failed to do flush on SSD cache [%s]", cache.ssd);
        return false;
    }
    return true;
}

// Whether failed write-backs are to be ignored; empty when that cannot be told.
std::optional<bool> ReadForceRemove(const Devices& cache) noexcept {
    const FLASHCACHE_ATTRIBUTE attribute = VEMOFlashCacheAttributeGet(cache.ssd, cache.space);
    if (attribute == -1) {
        LogError()("Failed to get attribute");
        return std::nullopt;
    }
    return attribute == FLASHCACHE_ATTRIBUTE_FORCE_REMOVE;
}

bool WriteBacksFailed(const Devices& cache) noexcept {
    if (FlashCacheSyncErrorCheck(cache.ssd, cache.space) == SyncErrors::kNone) {
        return false;
    }
    LogError()("Failed to flush dirty blocks");
    return true;
}

bool TriggerSync(const Devices& cache) noexcept {
    if (VEMOFlashCacheDoSysctlSet(FLASHCACHE_SYSCTL_DO_SYNC, 1, cache.ssd, cache.space) != 0) {
        LogError()("Perform do_sync sysctl error");
        return false;
    }
    return true;
}

Outcome FlushUntilDone(const Devices& cache, bool forceRemove) noexcept {
    const char* ssdName = VEMOFlashCacheGetShortDevName(cache.ssd);
    const char* spaceName = VEMOFlashCacheGetShortDevName(cache.space);
    for (;;) {
        if (VEMOFlashCacheGetFlushProgress(ssdName, spaceName, 0) == 100.0F) {
            return RecordDone(cache) ? Outcome::kDone : Outcome::kFailed;
        }
        if (IsRecorded(cache.ssd, FLASHCACHE_FLUSH_STATE_NORMAL)) {
            LogPlatformError()("Flashcache flushing canceled [%s]. ", cache.ssd);
            return Outcome::kCancelled;
        }
        if ((!forceRemove && WriteBacksFailed(cache)) || !TriggerSync(cache)) {
            return Outcome::kFailed;
        }
        Pause();
    }
}

void RestoreHandleState(const Devices& cache, FLASHCACHE_HANDLE_STATE saved) noexcept {
    if (VEMOFlashCacheHandleStateSet(cache.ssd, cache.space, saved) != 0) {
        LogError()("Failed to roll back to orignal state");
    }
}

// saved: the handle state before the flush, UNKNOWN when the flush did not come to read it. Returns -1.
int RollBack(const Devices& cache, FLASHCACHE_HANDLE_STATE saved) noexcept {
    LogError()("Roll back config to norml (non-flush) state");
    if (FlashCacheFlushStateSet(cache.ssd, FLASHCACHE_FLUSH_STATE_NORMAL) != 0) {
        LogError()("Unable to roll back to normal");
    }
    if (saved != FLASHCACHE_HANDLE_STATE_UNKNOWN) {
        RestoreHandleState(cache, saved);
    }
    return -1;
}

// From the saved handle state on; what it changed is the caller's to restore.
Outcome FlushFrom(const Devices& cache, FLASHCACHE_HANDLE_STATE saved) noexcept {
    if (!EnterFlushState(cache)) {
        return Outcome::kFailed;
    }
    const std::optional<bool> forceRemove = ReadForceRemove(cache);
    if (!forceRemove) {
        return Outcome::kFailed;
    }
    LogError()("Start flush (force remove = %d, original state = %s)", *forceRemove ? 1 : 0,
               VEMOFlashCacheHandleStateStr(saved));
    return FlushUntilDone(cache, *forceRemove);
}

int Flush(const Devices& cache) noexcept {
    if (!RecordFlushing(cache)) {
        return RollBack(cache, FLASHCACHE_HANDLE_STATE_UNKNOWN);
    }
    const FLASHCACHE_HANDLE_STATE saved = SaveHandleState(cache);
    if (saved == FLASHCACHE_HANDLE_STATE_UNKNOWN) {
        return RollBack(cache, saved);
    }
    switch (FlushFrom(cache, saved)) {
        case Outcome::kDone:
            return 1;
        case Outcome::kCancelled:
            RestoreHandleState(cache, saved);
            return 0;
        case Outcome::kFailed:
            break;
    }
    return RollBack(cache, saved);
}

}  // namespace

const char* FlashCacheFlushStateToStr(FLASHCACHE_FLUSH_STATE state) noexcept {
    switch (state) {
        case FLASHCACHE_FLUSH_STATE_NORMAL:
            return "normal";
        case FLASHCACHE_FLUSH_STATE_FLUSHING:
            return "flushing";
        case FLASHCACHE_FLUSH_STATE_FLUSH_DONE:
            return "flush_done";
        default:
            LogError()("Wrong cache flush state: %d", static_cast<int>(state));
            return nullptr;
    }
}

int FlashCacheFlushStateSet(const char* ssdPath, FLASHCACHE_FLUSH_STATE state) noexcept {
    if (ssdPath == nullptr) {
        return -1;
    }
    return Guarded(-1, [&] {
        const ConfigList entry = FindEntry(ssdPath);
        const char* text = entry ? FlashCacheFlushStateToStr(state) : nullptr;
        if (text == nullptr) {
            return -1;
        }
        Text copy = CopyText(text);
        std::free(entry->FlushState);
        entry->FlushState = copy.release();
        if (VEMOFlashCacheConfigSet(entry.get()) != 0) {
            LogError()("Failed to set flash cache config [%s]", ssdPath);
            return -1;
        }
        return 0;
    });
}

// A line such as "disk_read_errors=0 ... write_disk_sync_errors=0\n".
bool ParseSyncErrors(const char* text, long& count) noexcept {
    const char* found = std::strstr(text, kErrorsKey);
    if (found == nullptr) {
        LogError()("Parse key failed");
        return false;
    }
    // Eighteen digits always fit; cut, to 32 bits or to its first digits, a count of failures could read as
    // 0.
    int end = 0;
    if (std::sscanf(found, "write_disk_sync_errors=%18ld%n", &count, &end) != 1 || IsDigit(found[end])) {
        LogError()("Can't find the match pattern (line=%s)", found);
        return false;
    }
    return true;
}

SyncErrors FlashCacheSyncErrorCheck(const char* ssdPath, const char* spacePath) noexcept {
    const bool debug = VEMOFlashCacheIsDebug(0) == 1;
    if (ssdPath == nullptr || spacePath == nullptr) {
        LogError()("Incorrect Parameter");
        return SyncErrors::kUnknown;
    }
    const Text text(FlashCacheUtilProcRead(ssdPath, spacePath, kErrorsEntry));
    if (!text) {
        LogError()("Failed to get proc entry");
        return SyncErrors::kUnknown;
    }
    long count = 0;
    if (!ParseSyncErrors(text.get(), count)) {
        return SyncErrors::kUnknown;
    }
    if (debug) {
        LogError()("Error count=%ld ret=%d", count, count != 0 ? 1 : 0);
    }
    return count != 0 ? SyncErrors::kSome : SyncErrors::kNone;
}

}  // namespace flashcache

using namespace flashcache;

int VEMOFlashCacheIsRemoveInFlushState(const char* ssdPath, FLASHCACHE_FLUSH_STATE state) {
    const ConfigList entry = FindEntry(ssdPath);
    if (!entry) {
        return 0;
    }
    const char* text = FlashCacheFlushStateToStr(state);
    return text != nullptr && SameText(entry->FlushState, text) ? 1 : 0;
}

int VEMOFlashCacheIsDebug(int value) {
    return value == 0 && LookForOurs(kDebugMarker) == Found::kOurs ? 1 : 0;
}

int VEMOFlashCacheFlush(const char* cacheDevPath) {
    const StatList status = FindCache(cacheDevPath);
    if (!status) {
        return -1;
    }
    if (status->WriteMode != FLASHCACHE_WRITE_BACK) {
        return 1;
    }
    return Flush({status->SSDDevPath, status->SpacePath});
}

int VEMOFlashCacheFlushCancel(const char* cacheDevPath) {
    const StatList status = FindCache(cacheDevPath);
    if (!status) {
        return -1;
    }
    if (status->WriteMode != FLASHCACHE_WRITE_BACK) {
        LogError()("Not write back mode, cannot cancel");
        return -1;
    }
    const char* ssdPath = status->SSDDevPath;
    if (IsRecorded(ssdPath, FLASHCACHE_FLUSH_STATE_FLUSHING) &&
        FlashCacheFlushStateSet(ssdPath, FLASHCACHE_FLUSH_STATE_NORMAL) == 0) {
        LogError()("Cancel flash cache flush [%s]", ssdPath);
        return 1;
    }
    return IsRecorded(ssdPath, FLASHCACHE_FLUSH_STATE_FLUSH_DONE) ? 0 : -1;
}
