// Writing the run-time knobs of a loaded cache.

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "common/guard.h"
#include "common/handle.h"
#include "common/log.h"
#include "common/text.h"
#include "config/config.h"
#include "kernel/kernel.h"

namespace flashcache {
namespace {

constexpr std::size_t kAssignmentSize = 512;
constexpr int32_t kSkipSeqThreshKb = 1024;

int WriteKnob(const char* knobName, int32_t value, const char* devName) {
    const std::string assignment =
        FormatCut(kAssignmentSize, "dev.flashcache_%s.%s=%d", devName, knobName, value);
    const int status = VLIBCExecl("/sbin/sysctl", VLIBC_EXEC_WAIT, assignment.c_str(), nullptr);
    if (status != 0) {
        SetError(VLIBC_ERR_COMMAND_FAILED);
        __extension__ LogError()("Sysctl control failed [%s], errno=%m, ret=%d", assignment.c_str(), status);
        return -1;
    }
    return 0;
}

// One cache's knobs, written one after the other.
class Tuning {
  public:
    Tuning(const char* ssdPath, const char* spacePath) noexcept : ssdPath_(ssdPath), spacePath_(spacePath) {}

    bool Set(FLASHCACHE_SYSCTL knob, int32_t value, Where where = Where::current()) const {
        if (VEMOFlashCacheDoSysctlSet(knob, value, ssdPath_, spacePath_) == 0) {
            return true;
        }
        LogPlatformError(where)("Fail to set %s of cache [%s] to %d. ", SysctlKnobName(knob), ssdPath_,
                                value);
        return false;
    }

    bool SetSkipSeq(int32_t value) const {
        if (VEMOFlashCacheDoSysctlSet(FLASHCACHE_SYSCTL_SKIP_SEQ_THRESH_KB, value, ssdPath_, spacePath_) ==
            0) {
            return true;
        }
        LogPlatformError()("Fail to set skip_seq_io_thresh [%s]. ", ssdPath_);
        return false;
    }

  private:
    const char* ssdPath_;
    const char* spacePath_;
};

bool KeepsDirtyBlocks(int32_t writeMode) noexcept {
    return writeMode == FLASHCACHE_WRITE_BACK || writeMode == FLASHCACHE_WRITE_BACK_CRASH;
}

bool Apply(const FLASHCACHE_POLICY& policy, const Tuning& tuning) {
    // The kernel numbers the reclaim policies the other way round.
    const int32_t reclaimPolicy = policy.ReclaimPolicy == FLASHCACHE_RECLAIM_LRU ? 1 : 0;
    const int32_t dirtyThresh = policy.DirtyThreshPercent;
    return (dirtyThresh <= 0 || tuning.Set(FLASHCACHE_SYSCTL_DIRTY_THRESH_PCT, dirtyThresh)) &&
           (policy.DelaySeconds <= 0 || tuning.Set(FLASHCACHE_SYSCTL_FALLOW_DELAY, policy.DelaySeconds)) &&
           tuning.Set(FLASHCACHE_SYSCTL_RECLAIM_POLICY, reclaimPolicy) &&
           (!KeepsDirtyBlocks(policy.WriteMode) || tuning.Set(FLASHCACHE_SYSCTL_FAST_REMOVE, 1)) &&
           tuning.SetSkipSeq(policy.SkipSeqIO != 0 ? kSkipSeqThreshKb : 0);
}

}  // namespace
}  // namespace flashcache

using namespace flashcache;

char* VEMOFlashCacheSysctlDevNameGet(const char* ssdPath, const char* spacePath) {
    if (ssdPath == nullptr || spacePath == nullptr) {
        SetError(VLIBC_ERR_BAD_PARAMETER);
        return nullptr;
    }
    if (!IsDevicePath(ssdPath) || !IsDevicePath(spacePath)) {
        LogError()("bad parameter: %s, %s", ssdPath, spacePath);
        SetError(VLIBC_ERR_BAD_PARAMETER);
        return nullptr;
    }
    const char* ssdName = LastComponent(ssdPath);
    const char* spaceName = LastComponent(spacePath);
    const std::size_t size = std::strlen(ssdName) + std::strlen(spaceName) + 2;
    Text name(static_cast<char*>(std::malloc(size)));
    if (!name) {
        __extension__ LogError()("failed to malloc: %s+%s, errno=%m", ssdPath, spacePath);
        return nullptr;
    }
    std::snprintf(name.get(), size, "%s+%s", ssdName, spaceName);
    return name.release();
}

int VEMOFlashCacheDoSysctlSet(FLASHCACHE_SYSCTL knob, int32_t value, const char* ssdPath,
                              const char* spacePath) {
    const char* knobName = SysctlKnobName(knob);
    if (knobName == nullptr || ssdPath == nullptr || spacePath == nullptr) {
        SetError(VLIBC_ERR_BAD_PARAMETER);
        return -1;
    }
    const Text devName(VEMOFlashCacheSysctlDevNameGet(ssdPath, spacePath));
    if (!devName) {
        SetError(VLIBC_ERR_BAD_PARAMETER);
        return -1;
    }
    return Guarded(-1, [&] { return WriteKnob(knobName, value, devName.get()); });
}

int VEMOFlashCacheSysctlSet(const FLASHCACHE_POLICY* policy, const char* ssdPath, const char* spacePath) {
    if (policy == nullptr || ssdPath == nullptr || spacePath == nullptr) {
        SetError(VLIBC_ERR_BAD_PARAMETER);
        return -1;
    }
    return Guarded(-1, [&] { return Apply(*policy, Tuning(ssdPath, spacePath)) ? 0 : -1; });
}
