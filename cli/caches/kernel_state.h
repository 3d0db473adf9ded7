// What the kernel tells of a running cache beyond its status, with the names that the tool uses for it.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "caches/inventory.h"
#include "output/record.h"

namespace cli {

extern const std::map<std::string, FLASHCACHE_HANDLE_STATE> kHandleStates;
extern const std::map<std::string, FLASHCACHE_ATTRIBUTE> kAttributes;

FLASHCACHE_HANDLE_STATE HandleStateOf(const Cache& cache);

// The same without starting a program, for answers that look at all caches.
FLASHCACHE_HANDLE_STATE HandleStateAtALook(const Cache& cache);

// Whether a flush can leave its cache in this state: killed between the two knobs of the state flush, it
// leaves those of repairing.
bool IsOfFlush(FLASHCACHE_HANDLE_STATE state);

FLASHCACHE_ATTRIBUTE AttributeOf(const Cache& cache);

// The blocks that are not on the volume yet, the write-backs that failed, and the reads that the SSD did.
std::optional<std::uint64_t> DirtyBlocks(const std::string& ssd, const std::string& volume);
std::optional<std::uint64_t> WriteErrors(const std::string& ssd, const std::string& volume);
std::optional<std::uint64_t> SsdReadErrors(const std::string& ssd, const std::string& volume);

// How far a recorded flush has come, in percent; nothing when none is recorded.
std::optional<double> FlushPercent(const std::string& ssd, const std::string& volume);

// The name of a state or attribute; nothing for a value that is not known.
Value HandleStateText(FLASHCACHE_HANDLE_STATE state);
Value AttributeText(FLASHCACHE_ATTRIBUTE attribute);

}  // namespace cli
