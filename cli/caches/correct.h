// An entry that tells something else than the cache itself.
#pragma once

#include <string>
#include <vector>

#include "caches/inventory.h"

namespace cli {

// Makes the entry tell the mode, the size and the format that the SSD tells of its cache, and takes away the
// marks of missing devices that are there. What was changed, such as "the mode to back"; nothing: the entry
// is right. Throws a Failure when the SSD tells no cache of this volume.
std::vector<std::string> CorrectEntry(const Cache& cache);

}  // namespace cli
