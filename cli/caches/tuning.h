// The tuning of a cache: as it runs, and as its entry has it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "caches/inventory.h"

namespace cli {

// In seconds, a year: the kernel takes no more.
inline constexpr std::int32_t kLongestFallowDelay = 365 * 24 * 60 * 60;

// As the knobs of a running cache make it up; nothing when they cannot be read.
std::optional<FLASHCACHE_POLICY> RunningTuning(const Cache& cache);

// Where a running, configured cache differs from its entry: "dirty_thresh_pct is 20, configured 50".
std::vector<std::string> TuningDifferences(const Cache& cache);

// Brings a running cache to the tuning of its entry. Throws a Failure when a knob cannot be written.
void ApplyTuning(const Cache& cache);

}  // namespace cli
