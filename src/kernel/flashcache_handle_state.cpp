// Handle states: the regimes in which a cache device is run, each a combination of knobs.

#include <cstddef>

#include "common/log.h"
#include "kernel/kernel.h"

namespace flashcache {
namespace {

struct KnobWrite {
    FLASHCACHE_SYSCTL knob;
    int32_t value;
};

// In the order in which they are written; do_sync comes last, when the rest is in place.
constexpr KnobWrite kFlushWrites[] = {{FLASHCACHE_SYSCTL_CACHE_ALL, 0},
                                      {FLASHCACHE_SYSCTL_MAX_CLEAN_IOS_TOTAL, 20},
                                      {FLASHCACHE_SYSCTL_MAX_CLEAN_IOS_SET, 10},
                                      {FLASHCACHE_SYSCTL_DO_SYNC, 1}};
constexpr KnobWrite kNormalWrites[] = {{FLASHCACHE_SYSCTL_MAX_CLEAN_IOS_TOTAL, 4},
                                       {FLASHCACHE_SYSCTL_MAX_CLEAN_IOS_SET, 2},
                                       {FLASHCACHE_SYSCTL_CACHE_ALL, 1},
                                       {FLASHCACHE_SYSCTL_STOP_SYNC, 1},
                                       {FLASHCACHE_SYSCTL_DO_SYNC, 0}};
constexpr KnobWrite kRepairingWrites[] = {{FLASHCACHE_SYSCTL_CACHE_ALL, 0},
                                          {FLASHCACHE_SYSCTL_STOP_SYNC, 1},
                                          {FLASHCACHE_SYSCTL_MAX_CLEAN_IOS_TOTAL, 0},
                                          {FLASHCACHE_SYSCTL_MAX_CLEAN_IOS_SET, 2},
                                          {FLASHCACHE_SYSCTL_DO_SYNC, 0}};
constexpr KnobWrite kStopWritebackWrites[] = {{FLASHCACHE_SYSCTL_MAX_CLEAN_IOS_TOTAL, 0},
                                              {FLASHCACHE_SYSCTL_MAX_CLEAN_IOS_SET, 0},
                                              {FLASHCACHE_SYSCTL_CACHE_ALL, 1},
                                              {FLASHCACHE_SYSCTL_STOP_SYNC, 1},
                                              {FLASHCACHE_SYSCTL_DO_SYNC, 0}};

template <std::size_t Count>
int WriteAll(const KnobWrite (&writes)[Count], const char* ssdPath, const char* spacePath) noexcept {
    for (const KnobWrite& write : writes) {
        if (VEMOFlashCacheDoSysctlSet(write.knob, write.value, ssdPath, spacePath) != 0) {
            return -1;
        }
    }
    return 0;
}

bool ReadKnobs(const char* ssdPath, const char* spacePath, HandleKnobs& knobs) noexcept {
    const auto read = [&](FLASHCACHE_SYSCTL knob, int32_t& value) {
        return VEMOFlashCacheSysctlGet(knob, ssdPath, spacePath, &value) == 0;
    };
    return read(FLASHCACHE_SYSCTL_MAX_CLEAN_IOS_TOTAL, knobs.iosTotal) &&
           read(FLASHCACHE_SYSCTL_MAX_CLEAN_IOS_SET, knobs.iosSet) &&
           read(FLASHCACHE_SYSCTL_CACHE_ALL, knobs.cacheAll) &&
           read(FLASHCACHE_SYSCTL_DO_SYNC, knobs.doSync) && read(FLASHCACHE_SYSCTL_STOP_SYNC, knobs.stopSync);
}

}  // namespace

FLASHCACHE_HANDLE_STATE ClassifyHandleState(const HandleKnobs& knobs) noexcept {
    if (knobs.cacheAll == 1) {
        return knobs.iosTotal == 0 && knobs.iosSet == 0 ? FLASHCACHE_HANDLE_STATE_STOP_WRITEBACK
                                                        : FLASHCACHE_HANDLE_STATE_NORMAL;
    }
    if (knobs.cacheAll == 0 && knobs.doSync == 1) {
        return FLASHCACHE_HANDLE_STATE_FLUSH;
    }
    if (knobs.cacheAll == 0 && knobs.doSync == 0) {
        return FLASHCACHE_HANDLE_STATE_REPAIRING;
    }
    return FLASHCACHE_HANDLE_STATE_UNKNOWN;
}

}  // namespace flashcache

using namespace flashcache;

int SetFlushState(const char* ssdPath, const char* spacePath) {
    return WriteAll(kFlushWrites, ssdPath, spacePath);
}

int SetNormalState(const char* ssdPath, const char* spacePath) {
    return WriteAll(kNormalWrites, ssdPath, spacePath);
}

int SetRepairingState(const char* ssdPath, const char* spacePath) {
    return WriteAll(kRepairingWrites, ssdPath, spacePath);
}

int SetStopWritebackState(const char* ssdPath, const char* spacePath) {
    return WriteAll(kStopWritebackWrites, ssdPath, spacePath);
}

int VEMOFlashCacheHandleStateSet(const char* ssdPath, const char* spacePath, FLASHCACHE_HANDLE_STATE state) {
    if (ssdPath == nullptr || spacePath == nullptr || state == FLASHCACHE_HANDLE_STATE_UNKNOWN) {
        LogError()("Incorrect Parameter");
        return -1;
    }
    switch (state) {
        case FLASHCACHE_HANDLE_STATE_FLUSH:
            return SetFlushState(ssdPath, spacePath);
        case FLASHCACHE_HANDLE_STATE_NORMAL:
            return SetNormalState(ssdPath, spacePath);
        case FLASHCACHE_HANDLE_STATE_REPAIRING:
            return SetRepairingState(ssdPath, spacePath);
        case FLASHCACHE_HANDLE_STATE_STOP_WRITEBACK:
            return SetStopWritebackState(ssdPath, spacePath);
        default:
            return -1;
    }
}

FLASHCACHE_HANDLE_STATE VEMOFlashCacheHandleStateGet(const char* ssdPath, const char* spacePath) {
    if (ssdPath == nullptr || spacePath == nullptr) {
        LogError()("Incorrect Parameter");
        return FLASHCACHE_HANDLE_STATE_UNKNOWN;
    }
    HandleKnobs knobs;
    if (!ReadKnobs(ssdPath, spacePath, knobs)) {
        return FLASHCACHE_HANDLE_STATE_UNKNOWN;
    }
    const FLASHCACHE_HANDLE_STATE state = ClassifyHandleState(knobs);
    if (state == FLASHCACHE_HANDLE_STATE_UNKNOWN) {
        LogError()("Unknown state (iosTotal=%d iosSet=%d cacheAll=%d doSync=%d stopSync=%d", knobs.iosTotal,
                   knobs.iosSet, knobs.cacheAll, knobs.doSync, knobs.stopSync);
    }
    return state;
}

const char* VEMOFlashCacheHandleStateStr(FLASHCACHE_HANDLE_STATE state) {
    switch (state) {
        case FLASHCACHE_HANDLE_STATE_UNKNOWN:
            return "Unknown";
        case FLASHCACHE_HANDLE_STATE_FLUSH:
            return "Flush";
        case FLASHCACHE_HANDLE_STATE_NORMAL:
            return "Normal";
        case FLASHCACHE_HANDLE_STATE_REPAIRING:
            return "Repairing";
        case FLASHCACHE_HANDLE_STATE_STOP_WRITEBACK:
            return "StopWriteBack";
        default:
            LogError()("Error: Incorrect Handle State = %d", state);
            return "Unknown";
    }
}
