#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace simulation {

// The run-time knobs of one cache.
enum class Knob : uint8_t {
    kFallowDelay,
    kFallowCleanSpeed,
    kCacheAll,
    kFastRemove,
    kZeroStats,
    kReclaimPolicy,
    kPidExpirySecs,
    kMaxPids,
    kDoPidExpiry,
    kMaxCleanIosSet,
    kMaxCleanIosTotal,
    kDirtyThreshPct,
    kStopSync,
    kDoSync,
    kIoLatencyHist,
    kSkipSeqThreshKb,
    kCount
};

inline constexpr int32_t kReclaimFifo = 0;
inline constexpr int32_t kReclaimLru = 1;

struct KnobInfo {
    std::string_view name;
    int32_t initial;
};

inline constexpr std::array<KnobInfo, static_cast<size_t>(Knob::kCount)> kKnobs{
    {{"fallow_delay", 900},
     {"fallow_clean_speed", 2},
     {"cache_all", 1},
     {"fast_remove", 0},
     {"zero_stats", 0},
     {"reclaim_policy", kReclaimFifo},
     {"pid_expiry_secs", 60},
     {"max_pids", 100},
     {"do_pid_expiry", 0},
     {"max_clean_ios_set", 2},
     {"max_clean_ios_total", 4},
     {"dirty_thresh_pct", 20},
     {"stop_sync", 0},
     {"do_sync", 0},
     {"io_latency_hist", 0},
     {"skip_seq_thresh_kb", 0}}};

// The knob values of one cache.
class KnobValues {
  public:
    KnobValues() {
        for (size_t i = 0; i < kKnobs.size(); ++i) {
            values_[i] = kKnobs[i].initial;
        }
    }
    int32_t& operator[](Knob knob) { return values_[static_cast<size_t>(knob)]; }
    int32_t operator[](Knob knob) const { return values_[static_cast<size_t>(knob)]; }

  private:
    std::array<int32_t, kKnobs.size()> values_{};
};

// The number in what was written to a knob's file: one decimal of 32 bits, white space around it allowed.
std::optional<int32_t> ParseKnobValue(std::string_view text);

}  // namespace simulation
