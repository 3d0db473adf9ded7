// Bringing up a configured cache.
#pragma once

#include "caches/inventory.h"
#include "support/consent.h"

namespace cli {

// Brings the cache up, or finishes what an earlier loading or creation left undone: its tuning, its record.
// Throws a Failure that says first what became of the cache. False when nobody knows whether the volume was
// written while the cache was not up.
// `consent` is to blocks that are older than the volume.
bool LoadCache(const Cache& cache, const Consent& consent);

}  // namespace cli
