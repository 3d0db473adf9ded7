// Reading the run-time knobs of a loaded cache.

#include <array>
#include <cstdio>

#include "common/guard.h"
#include "common/handle.h"
#include "common/line_reader.h"
#include "common/log.h"
#include "common/text.h"
#include "kernel/kernel.h"

namespace flashcache {
namespace {

constexpr std::size_t kBufferSize = 1024;

// By FLASHCACHE_SYSCTL; 0 names no knob.
constexpr std::array<const char*, 17> kKnobNames = {nullptr,
                                                    "fallow_delay",
                                                    "fallow_clean_speed",
                                                    "cache_all",
                                                    "fast_remove",
                                                    "zero_stats",
                                                    "reclaim_policy",
                                                    "pid_expiry_secs",
                                                    "max_pids",
                                                    "do_pid_expiry",
                                                    "max_clean_ios_set",
                                                    "max_clean_ios_total",
                                                    "dirty_thresh_pct",
                                                    "stop_sync",
                                                    "do_sync",
                                                    "io_latency_hist",
                                                    "skip_seq_thresh_kb"};

int ReadKnob(const std::string& entry, int32_t* value) {
    const ChildStream answer(VLIBCPopen("/sbin/sysctl", "r", entry.c_str(), nullptr));
    if (!answer) {
        LogError()("Popen Fail. Command = %s",
                   FormatCut(kBufferSize, "/sbin/sysctl %s", entry.c_str()).c_str());
        return -1;
    }
    LineReader lines(answer.get(), kBufferSize - 1);
    const char* line = lines.Next();
    if (line == nullptr) {
        LogError()("Get NULL result");
        return -1;
    }
    if (!ParseSysctlAnswer(line, entry, *value)) {
        LogError()("Incorrect Parse Format: format=%s data=%s",
                   FormatCut(kBufferSize, "%s = %%d", entry.c_str()).c_str(), line);
        return -1;
    }
    return 0;
}

int GetKnob(const char* knobName, const char* ssdPath, const char* spacePath, int32_t* value) {
    const Text devName(VEMOFlashCacheSysctlDevNameGet(ssdPath, spacePath));
    if (!devName) {
        LogError()("Can't get correct dev name");
        return -1;
    }
    if (FlashCacheSysctlRead(devName.get(), knobName, value) < 0) {
        LogError()("Sysctl get error");
        return -1;
    }
    return 0;
}

}  // namespace

const char* SysctlKnobName(FLASHCACHE_SYSCTL knob) noexcept {
    const auto index = static_cast<std::size_t>(knob);
    return index < kKnobNames.size() ? kKnobNames[index] : nullptr;
}

// A line such as "dev.flashcache_md3+volume_1.cache_all = 1".
bool ParseSysctlAnswer(const char* line, const std::string& entry, int32_t& value) noexcept {
    return StartsWith(line, entry) && std::sscanf(line + entry.size(), " = %d", &value) == 1;
}

int FlashCacheSysctlRead(const char* devName, const char* knobName, int32_t* value) {
    if (devName == nullptr || knobName == nullptr || value == nullptr) {
        return -1;
    }
    return ReadKnob(FormatCut(kBufferSize, "dev.flashcache_%s.%s", devName, knobName), value);
}

}  // namespace flashcache

using namespace flashcache;

int VEMOFlashCacheSysctlGet(FLASHCACHE_SYSCTL knob, const char* ssdPath, const char* spacePath,
                            int32_t* value) {
    const char* knobName = SysctlKnobName(knob);
    if (knobName == nullptr || ssdPath == nullptr || spacePath == nullptr) {
        SetError(VLIBC_ERR_BAD_PARAMETER);
        return -1;
    }
    return Guarded(-1, [&] { return GetKnob(knobName, ssdPath, spacePath, value); });
}
