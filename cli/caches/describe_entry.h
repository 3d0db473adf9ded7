// The one description of a configuration entry from which table, text and JSON are formed.
#pragma once

#include <cstdint>

#include "output/record.h"
#include "vemoflashcache.h"

namespace cli {

// A line of the list of entries, and a whole entry.
Record EntrySummary(const FLASHCACHE_CONFIG& entry);
Record EntryDetails(const FLASHCACHE_CONFIG& entry);

// The configuration's names of values: "thru", "back", ...; nothing for a value without a text.
Value WriteModeText(std::int32_t mode);
Value ReclaimPolicyText(std::int32_t policy);
Value VersionText(std::int32_t version);

// The mode of a cache as kernel or SSD tell it: both know one write-back, and its entry, if there is one,
// tells which kind.
Value WriteModeText(std::int32_t mode, const FLASHCACHE_CONFIG* entry);

}  // namespace cli
