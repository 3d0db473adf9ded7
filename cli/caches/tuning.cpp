#include "caches/tuning.h"

#include <fmt/format.h>

#include "caches/describe_entry.h"
#include "support/background_call.h"

namespace cli {
namespace {

std::optional<std::int32_t> ReadKnob(FLASHCACHE_SYSCTL knob, const Cache& cache) {
    std::int32_t value = 0;
    const Outcome outcome = Attempt(
        [&] { return VEMOFlashCacheSysctlGet(knob, cache.Ssd().c_str(), cache.Volume().c_str(), &value); });
    return outcome.result == 0 ? std::optional(value) : std::nullopt;
}

// What the library writes for these modes, so that dirty blocks stay on the SSD when the device is taken
// down.
bool StaysDirty(std::int32_t mode) {
    return mode == FLASHCACHE_WRITE_BACK || mode == FLASHCACHE_WRITE_BACK_CRASH;
}

}  // namespace

std::optional<FLASHCACHE_POLICY> RunningTuning(const Cache& cache) {
    FLASHCACHE_POLICY policy{};
    policy.WriteMode = cache.Mode().value_or(FLASHCACHE_WRITE_BACK);
    const auto reclaim = ReadKnob(FLASHCACHE_SYSCTL_RECLAIM_POLICY, cache);
    const auto sequential = ReadKnob(FLASHCACHE_SYSCTL_SKIP_SEQ_THRESH_KB, cache);
    const auto delay = ReadKnob(FLASHCACHE_SYSCTL_FALLOW_DELAY, cache);
    const auto threshold = ReadKnob(FLASHCACHE_SYSCTL_DIRTY_THRESH_PCT, cache);
    if (!reclaim || !sequential || !delay || !threshold) {
        return std::nullopt;
    }
    // The kernel numbers the reclaim policies the other way round.
    policy.ReclaimPolicy = *reclaim == 1 ? FLASHCACHE_RECLAIM_LRU : FLASHCACHE_RECLAIM_FIFO;
    policy.SkipSeqIO = *sequential > 0 ? 1 : 0;
    policy.DelaySeconds = *delay;
    policy.DirtyThreshPercent = *threshold;
    return policy;
}

std::vector<std::string> TuningDifferences(const Cache& cache) {
    const auto running = cache.entry == nullptr ? std::nullopt : RunningTuning(cache);
    std::vector<std::string> differences;
    if (!running) {
        return differences;
    }
    const FLASHCACHE_POLICY& wanted = cache.entry->Policy;
    const auto compare = [&](const char* knob, auto is, auto configured) {
        if (is != configured) {
            differences.push_back(fmt::format("{} is {}, configured {}", knob, is, configured));
        }
    };
    // The entry leaves these two to the kernel with 0.
    if (wanted.DelaySeconds > 0) {
        compare("fallow_delay", running->DelaySeconds, wanted.DelaySeconds);
    }
    if (wanted.DirtyThreshPercent > 0) {
        compare("dirty_thresh_pct", running->DirtyThreshPercent, wanted.DirtyThreshPercent);
    }
    const auto policyText = [](std::int32_t policy) { return ToText({"", "", ReclaimPolicyText(policy)}); };
    compare("reclaim_policy", policyText(running->ReclaimPolicy),
            policyText(wanted.ReclaimPolicy == FLASHCACHE_RECLAIM_LRU ? FLASHCACHE_RECLAIM_LRU
                                                                      : FLASHCACHE_RECLAIM_FIFO));
    compare("the bypass of sequential I/O", running->SkipSeqIO != 0 ? "on" : "off",
            wanted.SkipSeqIO != 0 ? "on" : "off");
    if (StaysDirty(wanted.WriteMode)) {
        compare("fast_remove", ReadKnob(FLASHCACHE_SYSCTL_FAST_REMOVE, cache).value_or(1), 1);
    }
    return differences;
}

void ApplyTuning(const Cache& cache) {
    const std::string ssd = cache.Ssd();
    const std::string volume = cache.Volume();
    const Outcome outcome = Uninterrupted(
        [&] { return VEMOFlashCacheSysctlSet(&cache.entry->Policy, ssd.c_str(), volume.c_str()); });
    if (outcome.result != 0) {
        throw LibraryFailure(
            fmt::format("the cache {} is up as {}, but not with its tuning", cache.Name(), cache.device),
            outcome, fmt::format("vemocachectl load {}", cache.Name()));
    }
}

}  // namespace cli
