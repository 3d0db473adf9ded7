// A flush from its start to a known end, shown meanwhile.
#pragma once

#include "caches/inventory.h"
#include "flush/progress.h"

namespace cli {

enum class FlushEnd { kDone, kCancelled };

// Flushes a running cache. Ctrl-C (and SIGTERM, SIGHUP) cancels; the call then returns once the device is
// back in its former state. Throws a Failure when the flush failed.
FlushEnd RunFlush(const Cache& cache, bool json);

// Shows a flush that runs in another process until it is over. Ctrl-C stops the showing alone.
void FollowFlush(const Cache& cache, bool json);

// Cancels a flush that runs in another process and waits until the device has left the state Flush.
void CancelFlush(const Cache& cache);

}  // namespace cli
