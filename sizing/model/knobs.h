#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace sizing {

// The run-time knobs of one cache.
enum class Knob : std::uint8_t {
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

inline constexpr std::int32_t kReclaimFifo = 0;
inline constexpr std::int32_t kReclaimLru = 1;

struct KnobInfo {
    std::string_view name;
    std::int32_t initial;
    std::int32_t least = 0;
    std::int32_t most = 1;  // most are switches
};

// Beyond the two policies known, so that readers meet values of kernels to come; they reclaim as fifo does.
inline constexpr std::int32_t kMostPolicy = 15;
inline constexpr std::int32_t kMostSeconds = 365 * 24 * 60 * 60;
inline constexpr std::int32_t kMostCleanIos = 65536;
inline constexpr std::int32_t kMostPids = 65536;
inline constexpr std::int32_t kMostSequentialKb = 1 << 30;  // 1 TiB

inline constexpr std::array<KnobInfo, static_cast<std::size_t>(Knob::kCount)> kKnobs{
    {{"fallow_delay", 900, 0, kMostSeconds},
     {"fallow_clean_speed", 2, 1, 100},
     {"cache_all", 1},
     {"fast_remove", 0},
     {"zero_stats", 0},
     {"reclaim_policy", kReclaimFifo, 0, kMostPolicy},
     {"pid_expiry_secs", 60, 0, kMostSeconds},
     {"max_pids", 100, 0, kMostPids},
     {"do_pid_expiry", 0},
     {"max_clean_ios_set", 2, 0, kMostCleanIos},
     {"max_clean_ios_total", 4, 0, kMostCleanIos},
     {"dirty_thresh_pct", 20, 0, 100},
     {"stop_sync", 0},
     {"do_sync", 0},
     {"io_latency_hist", 0},
     {"skip_seq_thresh_kb", 0, 0, kMostSequentialKb}}};

// The knob values of one cache.
class KnobValues {
  public:
    KnobValues() {
        for (std::size_t i = 0; i < kKnobs.size(); ++i) {
            values_[i] = kKnobs[i].initial;
        }
    }
    std::int32_t& operator[](Knob knob) { return values_[static_cast<std::size_t>(knob)]; }
    std::int32_t operator[](Knob knob) const { return values_[static_cast<std::size_t>(knob)]; }

  private:
    std::array<std::int32_t, kKnobs.size()> values_{};
};

// The number in what was written to a knob's file: one decimal in the knob's range, white space around it
// allowed.
std::optional<std::int32_t> ParseKnobValue(Knob knob, std::string_view text);

}  // namespace sizing
