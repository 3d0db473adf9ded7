// A flush from its start to a known end, shown meanwhile.
#pragma once

#include <string>

#include "caches/inventory.h"
#include "flush/loss.h"
#include "flush/plan.h"

namespace cli {

struct Flushed {
    FlushEnd end = FlushEnd::kDone;
    Lost lost;
    std::string why;  // it stalled
};

// Flushes a running cache; one whose mode makes no block dirty is done at once. Ctrl-C (and SIGTERM, SIGHUP)
// cancels, as the plan may; however it ends, the device is back in its former state then, unless the plan
// keeps that of a flush which is done. Throws a Failure when the flush failed.
Flushed RunFlush(const Cache& cache, bool json, const FlushPlan& plan);

}  // namespace cli
