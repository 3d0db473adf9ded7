// A flush from its start to a known end, shown meanwhile.
#pragma once

#include "caches/inventory.h"
#include "flush/loss.h"

namespace cli {

enum class FlushEnd { kDone, kCancelled };

struct Flushed {
    FlushEnd end = FlushEnd::kDone;
    Lost lost;
};

// Flushes a running cache; one whose mode makes no block dirty is done at once. Ctrl-C (and SIGTERM, SIGHUP)
// cancels; the call then returns once the device is back in its former state. Throws a Failure when the flush
// failed.
Flushed RunFlush(const Cache& cache, bool json);

}  // namespace cli
