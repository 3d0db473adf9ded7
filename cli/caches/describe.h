// The one description of caches and configuration entries from which table, text and JSON are formed.
#pragma once

#include <string>

#include "caches/inventory.h"
#include "output/record.h"

namespace cli {

// A line of the list of caches.
Record Summary(const Cache& cache);

// All that is known of a cache.
Record Details(const Cache& cache);

// Replaces what a Summary or Details says of the cache's problem.
void SetProblem(Record& record, const std::string& problem);

// A line of the list of entries, and a whole entry.
Record EntrySummary(const FLASHCACHE_CONFIG& entry);
Record EntryDetails(const FLASHCACHE_CONFIG& entry);

// "thru", "back", ...; nothing for a value without a text.
Value WriteModeText(std::int32_t mode);
Value ReclaimPolicyText(std::int32_t policy);
Value VersionText(std::int32_t version);

}  // namespace cli
