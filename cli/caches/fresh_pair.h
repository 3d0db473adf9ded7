// Whether an SSD and a volume can become a cache.
#pragma once

#include <string>

#include "caches/inventory.h"

namespace cli {

// Throws a Failure unless both are block devices, nobody uses them, no cache has either, and the kernel and
// the library can tell the new cache from all others.
void RequireFreshPair(const Inventory& inventory, const std::string& ssd, const std::string& volume);

}  // namespace cli
