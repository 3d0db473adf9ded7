// What a flush leaves in the cache's entry and in the kernel, and whether that is still true.
#pragma once

#include "caches/inventory.h"
#include "caches/kernel_state.h"

namespace cli {

bool IsFlushRecorded(const Cache& cache, FLASHCACHE_FLUSH_STATE state);

// Whether a flush is recorded as running that no process of this tool runs.
bool IsFlushDead(const Cache& cache);

// Takes back the record of a flush that is over; the caller holds the FlushLock.
void MendFlushRecord(const Cache& cache);

// Brings the cache back to the state that it had before a flush, unless it is there or that is not known.
// Throws a Failure when it cannot.
void EnsureState(const Cache& cache, FLASHCACHE_HANDLE_STATE former);

// Takes back what a flush without a process left. The state of before died with it: that of a cache which
// nobody flushes or repairs is put in its place. A flush that another program runs all the same takes the
// record for its cancellation.
void MendDeadFlush(const Cache& cache);

}  // namespace cli
