#include "model/knobs.h"

#include "kernel/kernel.h"
#include "sizing/model/knobs.h"

namespace model {

int& At(Knobs& knobs, FLASHCACHE_SYSCTL knob) {
    return knobs.at(static_cast<std::size_t>(knob));
}

bool Write(Knobs& knobs, FLASHCACHE_SYSCTL knob, int value) {
    const sizing::KnobInfo& info = sizing::kKnobs.at(static_cast<std::size_t>(knob - 1));
    if (value < info.least || value > info.most) {
        return false;
    }
    At(knobs, knob) = knob == FLASHCACHE_SYSCTL_ZERO_STATS ? 0 : value;
    if (knob == FLASHCACHE_SYSCTL_DO_SYNC && value != 0) {
        At(knobs, FLASHCACHE_SYSCTL_STOP_SYNC) = 0;
    }
    return true;
}

Knobs NewKnobs() {
    Knobs knobs{};
    for (std::size_t i = 0; i < sizing::kKnobs.size(); ++i) {
        knobs.at(i + 1) = sizing::kKnobs.at(i).initial;
    }
    return knobs;
}

void Tune(Knobs& knobs, const FLASHCACHE_POLICY& policy) {
    if (policy.DirtyThreshPercent > 0) {
        Write(knobs, FLASHCACHE_SYSCTL_DIRTY_THRESH_PCT, policy.DirtyThreshPercent);
    }
    if (policy.DelaySeconds > 0) {
        Write(knobs, FLASHCACHE_SYSCTL_FALLOW_DELAY, policy.DelaySeconds);
    }
    Write(knobs, FLASHCACHE_SYSCTL_RECLAIM_POLICY, policy.ReclaimPolicy == FLASHCACHE_RECLAIM_LRU ? 1 : 0);
    if (policy.WriteMode == FLASHCACHE_WRITE_BACK || policy.WriteMode == FLASHCACHE_WRITE_BACK_CRASH) {
        Write(knobs, FLASHCACHE_SYSCTL_FAST_REMOVE, 1);
    }
    Write(knobs, FLASHCACHE_SYSCTL_SKIP_SEQ_THRESH_KB, policy.SkipSeqIO != 0 ? 1024 : 0);
}

void Enter(Knobs& knobs, const Regime& regime) {
    Write(knobs, FLASHCACHE_SYSCTL_MAX_CLEAN_IOS_TOTAL, regime.total);
    Write(knobs, FLASHCACHE_SYSCTL_MAX_CLEAN_IOS_SET, regime.set);
    Write(knobs, FLASHCACHE_SYSCTL_CACHE_ALL, regime.cacheAll);
    Write(knobs, FLASHCACHE_SYSCTL_STOP_SYNC, regime.stopSync);
    Write(knobs, FLASHCACHE_SYSCTL_DO_SYNC, regime.doSync);
}

FLASHCACHE_HANDLE_STATE StateOf(Knobs knobs) {
    return flashcache::ClassifyHandleState(
        {At(knobs, FLASHCACHE_SYSCTL_MAX_CLEAN_IOS_TOTAL), At(knobs, FLASHCACHE_SYSCTL_MAX_CLEAN_IOS_SET),
         At(knobs, FLASHCACHE_SYSCTL_CACHE_ALL), At(knobs, FLASHCACHE_SYSCTL_DO_SYNC), 0});
}

}  // namespace model
