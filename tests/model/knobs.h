// What the kernel makes of writes to a cache's knobs.
#pragma once

#include "model/state.h"

namespace model {

// The knobs that make up the handle states, in the order of SetFlushState, SetNormalState and so on.
struct Regime {
    FLASHCACHE_HANDLE_STATE state;
    int total, set, cacheAll, stopSync, doSync;
};
inline constexpr Regime kRegimes[] = {{FLASHCACHE_HANDLE_STATE_FLUSH, 20, 10, 0, -1, 1},
                                      {FLASHCACHE_HANDLE_STATE_NORMAL, 4, 2, 1, 1, 0},
                                      {FLASHCACHE_HANDLE_STATE_REPAIRING, 0, 2, 0, 1, 0},
                                      {FLASHCACHE_HANDLE_STATE_STOP_WRITEBACK, 0, 0, 1, 1, 0}};

// A new cache's.
Knobs NewKnobs();

int& At(Knobs& knobs, FLASHCACHE_SYSCTL knob);

// As the kernel takes it; false for a value that it refuses.
bool Write(Knobs& knobs, FLASHCACHE_SYSCTL knob, int value);

// As applying a policy, and entering a handle state, do it.
void Tune(Knobs& knobs, const FLASHCACHE_POLICY& policy);
void Enter(Knobs& knobs, const Regime& regime);

FLASHCACHE_HANDLE_STATE StateOf(Knobs knobs);

}  // namespace model
