// A flush that another process runs, or ran.
#pragma once

#include "caches/inventory.h"

namespace cli {

// Shows a flush that runs in another process until it is over. Ctrl-C stops the showing alone. Throws a
// Failure when the recorded flush has no process.
void FollowFlush(const Cache& cache, bool json);

enum class Cancelled { kRunning, kDead };

// Cancels a flush that runs in another process and waits until the device has left the state Flush. What a
// flush without a process left behind is mended instead: its record, and the handle state.
Cancelled CancelFlush(const Cache& cache);

}  // namespace cli
