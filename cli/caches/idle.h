// What keeps a cache device from being taken down, told before it is tried.
#pragma once

#include "caches/inventory.h"

namespace cli {

// Throws a Failure that names the mounts, devices or programs that use the cache device.
void RequireIdle(const Cache& cache);

}  // namespace cli
