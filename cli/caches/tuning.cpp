#include "caches/tuning.h"

#include <fmt/format.h>

#include "caches/describe_entry.h"
#include "caches/programs.h"
#include "caches/running.h"
#include "support/background_call.h"
#include "support/dry_run.h"

namespace cli {
namespace {

std::optional<TuningKnobs> ReadTuningKnobs(const Cache& cache) {
    const auto knobs = ReadKnobs(KernelName(cache.Ssd(), cache.Volume()));
    return knobs ? TuningIn(*knobs) : std::nullopt;
}

// The kernel numbers the reclaim policies the other way round.
std::int32_t ReclaimPolicyOf(const TuningKnobs& knobs) {
    return knobs.reclaimPolicy == 1 ? FLASHCACHE_RECLAIM_LRU : FLASHCACHE_RECLAIM_FIFO;
}

}  // namespace

bool StaysDirty(std::int32_t mode) {
    return mode == FLASHCACHE_WRITE_BACK || mode == FLASHCACHE_WRITE_BACK_CRASH;
}

std::optional<TuningKnobs> TuningIn(const Counts& knobs) {
    const auto read = [&](const char* knob) {
        const auto value = CountIn(knobs, knob);
        return value ? std::optional(static_cast<std::int32_t>(*value)) : std::nullopt;
    };
    const auto reclaim = read("reclaim_policy");
    const auto sequential = read("skip_seq_thresh_kb");
    const auto delay = read("fallow_delay");
    const auto threshold = read("dirty_thresh_pct");
    if (!reclaim || !sequential || !delay || !threshold) {
        return std::nullopt;
    }
    return TuningKnobs{*reclaim, *sequential, *delay, *threshold, read("fast_remove")};
}

std::optional<FLASHCACHE_POLICY> RunningTuning(const Cache& cache) {
    const auto knobs = ReadTuningKnobs(cache);
    if (!knobs) {
        return std::nullopt;
    }
    FLASHCACHE_POLICY policy{};
    policy.WriteMode = cache.Mode().value_or(FLASHCACHE_WRITE_BACK);
    policy.ReclaimPolicy = ReclaimPolicyOf(*knobs);
    policy.SkipSeqIO = knobs->skipSequentialKb > 0 ? 1 : 0;
    policy.DelaySeconds = knobs->fallowDelay;
    policy.DirtyThreshPercent = knobs->dirtyThreshold;
    return policy;
}

std::vector<std::string> TuningDifferences(const FLASHCACHE_POLICY& wanted, const TuningKnobs& knobs) {
    std::vector<std::string> differences;
    const auto compare = [&](const char* knob, auto is, auto configured) {
        if (is != configured) {
            differences.push_back(fmt::format("{} is {}, configured {}", knob, is, configured));
        }
    };
    // The entry leaves these two to the kernel with 0.
    if (wanted.DelaySeconds > 0) {
        compare("fallow_delay", knobs.fallowDelay, wanted.DelaySeconds);
    }
    if (wanted.DirtyThreshPercent > 0) {
        compare("dirty_thresh_pct", knobs.dirtyThreshold, wanted.DirtyThreshPercent);
    }
    const auto policyText = [](std::int32_t policy) { return ToText({"", "", ReclaimPolicyText(policy)}); };
    compare("reclaim_policy", policyText(ReclaimPolicyOf(knobs)),
            policyText(wanted.ReclaimPolicy == FLASHCACHE_RECLAIM_LRU ? FLASHCACHE_RECLAIM_LRU
                                                                      : FLASHCACHE_RECLAIM_FIFO));
    compare("the bypass of sequential I/O", knobs.skipSequentialKb > 0 ? "on" : "off",
            wanted.SkipSeqIO != 0 ? "on" : "off");
    if (StaysDirty(wanted.WriteMode)) {
        compare("fast_remove", knobs.fastRemove.value_or(1), 1);
    }
    return differences;
}

std::vector<std::string> TuningDifferences(const Cache& cache) {
    const auto knobs = cache.entry == nullptr ? std::nullopt : ReadTuningKnobs(cache);
    return knobs ? TuningDifferences(cache.entry->Policy, *knobs) : std::vector<std::string>();
}

void ApplyTuning(const Cache& cache) {
    const std::string ssd = cache.Ssd();
    const std::string volume = cache.Volume();
    const FLASHCACHE_POLICY& policy = cache.entry->Policy;
    const Outcome outcome = Change(
        Uninterrupted,
        [&] { return Step{"VEMOFlashCacheSysctlSet", {ssd, volume}, WritingTuning(policy, ssd, volume)}; },
        [&] { return VEMOFlashCacheSysctlSet(&policy, ssd.c_str(), volume.c_str()); });
    if (outcome.result != 0) {
        throw LibraryFailure(
            fmt::format("the cache {} is up as {}, but not with its tuning", cache.Name(), cache.device),
            outcome, fmt::format("vemocachectl load {}", cache.Name()));
    }
}

}  // namespace cli
