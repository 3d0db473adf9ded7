#include "flush/record.h"

#include <fmt/format.h>

#include "caches/entry.h"
#include "caches/flush_lock.h"
#include "caches/programs.h"
#include "support/dry_run.h"

namespace cli {

bool IsFlushRecorded(const Cache& cache, FLASHCACHE_FLUSH_STATE state) {
    return VEMOFlashCacheIsRemoveInFlushState(cache.Ssd().c_str(), state) == 1;
}

bool IsFlushDead(const Cache& cache) {
    // A flush that ends records its end while it still holds the lock: the lock is looked at first.
    return !FlushRuns(cache) && IsFlushRecorded(cache, FLASHCACHE_FLUSH_STATE_FLUSHING) && !FlushRuns(cache);
}

void MendFlushRecord(const Cache& cache) {
    if (cache.entry != nullptr && (IsFlushRecorded(cache, FLASHCACHE_FLUSH_STATE_FLUSHING) ||
                                   IsFlushRecorded(cache, FLASHCACHE_FLUSH_STATE_FLUSH_DONE))) {
        MarkLoaded(cache.Name(), true);
    }
}

void EnsureState(const Cache& cache, FLASHCACHE_HANDLE_STATE former) {
    if (former == FLASHCACHE_HANDLE_STATE_UNKNOWN || HandleStateOf(cache) == former) {
        return;
    }
    const Outcome outcome = Change(
        Attempt, [&] { return StateStep(cache.Ssd(), cache.Volume(), former); },
        [&] { return VEMOFlashCacheHandleStateSet(cache.Ssd().c_str(), cache.Volume().c_str(), former); });
    if (outcome.result != 0) {
        throw LibraryFailure(fmt::format("the flush of {} is over, but its state {} could not be restored",
                                         cache.Name(), ToText({"", "", HandleStateText(former)})),
                             outcome, fmt::format("vemocachectl state set {} normal", cache.Name()));
    }
}

void MendDeadFlush(const Cache& cache) {
    const FlushLock lock(cache);
    MendFlushRecord(cache);
    if (IsOfFlush(HandleStateOf(cache))) {
        EnsureState(cache, FLASHCACHE_HANDLE_STATE_NORMAL);
    }
}

}  // namespace cli
