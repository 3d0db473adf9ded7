// A flush that is watched while it runs: shown, and ended when the admin or its plan wants it.
#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "caches/inventory.h"
#include "flush/display.h"
#include "flush/loss.h"
#include "flush/pace.h"
#include "flush/plan.h"
#include "flush/progress.h"
#include "support/background_call.h"

namespace cli {

class FlushWatch {
  public:
    FlushWatch(const Cache& cache, const FlushPlan& plan, bool json);

    // Shows the flush until it is over; an interruption or the plan cancels it.
    void Follow(BackgroundCall& flush, LossWatch& losses);

    // Of a flush that was cancelled: by whom or what, and why it stalled.
    [[nodiscard]] FlushEnd End() const { return end_.value_or(FlushEnd::kCancelled); }
    [[nodiscard]] const std::string& Why() const { return why_; }

    // How fast it went.
    [[nodiscard]] const PaceMeter& Pace() const { return pace_; }

  private:
    void Want(FlushEnd end, const Progress& progress);
    void Show(const Progress& progress);
    [[nodiscard]] std::chrono::milliseconds WaitTime() const;

    const Cache& cache_;
    const FlushPlan& plan_;
    ProgressMeter meter_;
    PaceMeter pace_;
    ProgressDisplay display_;
    std::chrono::steady_clock::time_point nextShow_;
    std::optional<FlushEnd> end_;  // wanted
    std::string why_;
    bool isAsked_ = false;
};

}  // namespace cli
