// The tuning of a cache: as it runs, and as its entry has it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "caches/inventory.h"
#include "caches/kernel_files.h"

namespace cli {

// In seconds, a year: the kernel takes no more.
inline constexpr std::int32_t kLongestFallowDelay = 365 * 24 * 60 * 60;

// The knobs that make up a tuning, as the kernel numbers them.
struct TuningKnobs {
    std::int32_t reclaimPolicy = 0;
    std::int32_t skipSequentialKb = 0;
    std::int32_t fallowDelay = 0;
    std::int32_t dirtyThreshold = 0;
    std::optional<std::int32_t> fastRemove;  // nothing: not known
};

// Whether the library writes fast_remove for this mode, so that dirty blocks stay on the SSD when the device
// is taken down.
bool StaysDirty(std::int32_t mode);

// Nothing when one of them is missing.
std::optional<TuningKnobs> TuningIn(const Counts& knobs);

// Where these knobs are not what `wanted` asks for: "dirty_thresh_pct is 20, configured 50".
std::vector<std::string> TuningDifferences(const FLASHCACHE_POLICY& wanted, const TuningKnobs& knobs);

// As the knobs of a running cache make it up; nothing when they cannot be read.
std::optional<FLASHCACHE_POLICY> RunningTuning(const Cache& cache);

// Where a running, configured cache differs from its entry.
std::vector<std::string> TuningDifferences(const Cache& cache);

// Brings a running cache to the tuning of its entry. Throws a Failure when a knob cannot be written.
void ApplyTuning(const Cache& cache);

}  // namespace cli
