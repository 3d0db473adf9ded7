#include "flush/watch.h"

#include <fmt/format.h>

#include <algorithm>

namespace cli {
namespace {

using std::chrono::milliseconds;

// In the background too: further Ctrl-Cs of an impatient admin would kill the tools that the cancellation
// runs, and it rewrites the configuration.
int Cancel(const Cache& cache) {
    BackgroundCall cancellation([&] { return VEMOFlashCacheFlushCancel(cache.device.c_str()); });
    while (cancellation.WaitFor(std::chrono::hours(1)) != BackgroundCall::Event::kOver) {
    }
    return cancellation.Result().result;
}

std::string WhyStalled(const Cache& cache, const Progress& progress) {
    const std::string idle = fmt::format("no block came clean for {} seconds", progress.idle.count());
    if (const auto failed = WhyWriteBacksFailed(progress)) {
        return fmt::format("{}: {}", idle, *failed);
    }
    std::int32_t stopped = 0;
    const Outcome outcome = Attempt([&] {
        return VEMOFlashCacheSysctlGet(FLASHCACHE_SYSCTL_STOP_SYNC, cache.Ssd().c_str(),
                                       cache.Volume().c_str(), &stopped);
    });
    if (outcome.result == 0 && stopped != 0) {
        return fmt::format("{}: its knob stop_sync is on", idle);
    }
    return fmt::format("{}, and nothing tells why: look at dmesg", idle);
}

// Why the plan ends a flush that has come so far, if it does.
std::optional<FlushEnd> EndByPlan(const FlushPlan& plan, const Progress& progress) {
    if (plan.untilPercent && progress.percent && *progress.percent >= *plan.untilPercent) {
        return FlushEnd::kEnough;
    }
    if (plan.stall && progress.idle >= *plan.stall) {
        return FlushEnd::kStalled;
    }
    if (plan.deadline && std::chrono::steady_clock::now() >= *plan.deadline) {
        return FlushEnd::kDeadline;
    }
    return std::nullopt;
}

std::string TextOfEnd(FlushEnd end, const FlushPlan& plan) {
    switch (end) {
        case FlushEnd::kEnough:
            return fmt::format("{} percent are clean", plan.untilPercent.value_or(0));
        case FlushEnd::kStalled:
            return "it stalled";
        case FlushEnd::kDeadline:
            return "its time is over";
        default:
            return "cancelling";
    }
}

}  // namespace

FlushWatch::FlushWatch(const Cache& cache, const FlushPlan& plan, bool json)
    : cache_(cache), plan_(plan), meter_(cache), display_(cache.Name(), json) {}

void FlushWatch::Follow(BackgroundCall& flush, LossWatch& losses) {
    for (;;) {
        const Progress progress = meter_.Read();
        pace_.See(progress);
        losses.See(progress.writeErrors);
        Show(progress);
        if (const auto end = EndByPlan(plan_, progress); end && !end_) {
            Want(*end, progress);
        }
        const auto event = flush.WaitFor(WaitTime());
        if (event == BackgroundCall::Event::kOver) {
            display_.Show(meter_.Read());
            return;
        }
        if (event == BackgroundCall::Event::kInterrupted && !end_) {
            Want(FlushEnd::kCancelled, progress);
        }
        if (end_ && !isAsked_) {
            isAsked_ = Cancel(cache_) >= 0;
        }
    }
}

void FlushWatch::Want(FlushEnd end, const Progress& progress) {
    end_ = end;
    if (end == FlushEnd::kStalled) {
        why_ = WhyStalled(cache_, progress);
    }
    display_.Say(TextOfEnd(end, plan_) +
                 ": the flush sees it within some 5 seconds and restores the former state");
}

void FlushWatch::Show(const Progress& progress) {
    if (const auto now = std::chrono::steady_clock::now(); now >= nextShow_) {
        display_.Show(progress);
        nextShow_ = now + display_.Interval();
    }
}

milliseconds FlushWatch::WaitTime() const {
    if (end_ && !isAsked_) {
        return milliseconds(100);  // one that is just beginning cannot be cancelled before its record
    }
    const bool isLimited = plan_.deadline || plan_.untilPercent || plan_.stall;
    return isLimited ? std::min(display_.Interval(), milliseconds(500)) : display_.Interval();
}

}  // namespace cli
