// The one description of a cache from which table, text and JSON are formed.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "caches/inventory.h"
#include "output/record.h"

namespace cli {

// "running", "unloaded", or "unknown" where the kernel cannot be asked.
const char* StateText(const Cache& cache);

// The name of its mode; nothing when it is not known.
Value WriteModeOf(const Cache& cache);

// The blocks that are not on the volume yet, as the kernel tells, or the SSD of a cache that is not up.
std::optional<std::uint64_t> DirtyBlocksOf(const Cache& cache);

// Which cache it is and where.
Record Identity(const Cache& cache);

// A line of the list of caches.
Record Summary(const Cache& cache);

// All that is known of a cache.
Record Details(const Cache& cache);

// Replaces what a Summary or Details says of the cache's problem.
void SetProblem(Record& record, const std::string& problem);

}  // namespace cli
