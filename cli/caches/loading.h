// Bringing up a configured cache.
#pragma once

#include "caches/inventory.h"

namespace cli {

// To blocks that are older than the volume.
struct StaleConsent {
    bool given = false;
    bool mayAsk = false;
};

// Brings the cache up, or finishes what an earlier loading or creation left undone: its tuning, its record.
// Throws a Failure that says first what became of the cache. False when nobody knows whether the volume was
// written while the cache was not up.
bool LoadCache(const Cache& cache, const StaleConsent& consent);

}  // namespace cli
