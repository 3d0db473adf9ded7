// How a flush may end.
#pragma once

#include <chrono>
#include <optional>

namespace cli {

// What a flush is to leave, and what ends it before all is clean. It is seen within some seconds.
struct FlushPlan {
    bool keepsState = false;  // the kernel's state for a flush, in which no new block enters the cache
    std::optional<std::chrono::steady_clock::time_point> deadline = {};
    std::optional<int> untilPercent = {};            // of the blocks that were dirty when it began
    std::optional<std::chrono::seconds> stall = {};  // in which no block came clean
};

enum class FlushEnd { kDone, kCancelled, kDeadline, kEnough, kStalled };

}  // namespace cli
