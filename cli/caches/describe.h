// The one description of a cache from which table, text and JSON are formed.
#pragma once

#include <string>

#include "caches/inventory.h"
#include "output/record.h"

namespace cli {

// Which cache it is and where.
Record Identity(const Cache& cache);

// A line of the list of caches.
Record Summary(const Cache& cache);

// All that is known of a cache.
Record Details(const Cache& cache);

// Replaces what a Summary or Details says of the cache's problem.
void SetProblem(Record& record, const std::string& problem);

}  // namespace cli
