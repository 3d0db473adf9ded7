#include "flush/foreign.h"

#include <fmt/format.h>

#include <thread>

#include "caches/flush_lock.h"
#include "caches/programs.h"
#include "flush/display.h"
#include "flush/record.h"
#include "support/dry_run.h"

namespace cli {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

// Has the flush's process see its cancellation; it looks every 5 seconds.
Cancelled AwaitCancelled(const Cache& cache) {
    const auto deadline = std::chrono::steady_clock::now() + seconds(20);
    while (HandleStateOf(cache) == FLASHCACHE_HANDLE_STATE_FLUSH) {
        if (!FlushRuns(cache) && HandleStateOf(cache) == FLASHCACHE_HANDLE_STATE_FLUSH) {
            MendDeadFlush(cache);  // it died before it saw the cancellation
            return Cancelled::kDead;
        }
        if (std::chrono::steady_clock::now() > deadline) {
            throw Failure{
                fmt::format("the flush of {} is recorded as cancelled, but it did not answer", cache.Name()),
                "its process hangs, maybe on a device; the cache is still in the state flush",
                fmt::format("look at the devices of {} in dmesg", cache.Name())};
        }
        std::this_thread::sleep_for(milliseconds(200));
    }
    return Cancelled::kRunning;
}

}  // namespace

void FollowFlush(const Cache& cache, bool json) {
    ProgressMeter meter(cache);
    ProgressDisplay display(cache.Name(), json);
    auto next = std::chrono::steady_clock::now();
    while (FlushRuns(cache) && IsFlushRecorded(cache, FLASHCACHE_FLUSH_STATE_FLUSHING)) {
        if (const auto now = std::chrono::steady_clock::now(); now >= next) {
            display.Show(meter.Read());
            next = now + display.Interval();
        }
        std::this_thread::sleep_for(milliseconds(200));
    }
    if (IsFlushDead(cache)) {
        throw Failure{
            fmt::format("the flush of {} is recorded as running, but no vemocachectl runs it", cache.Name()),
            "its process ended without a chance to restore the state; nothing is written back now",
            fmt::format(
                "\"vemocachectl flush {0}\" begins it again, \"vemocachectl flush --cancel {0}\" returns the "
                "cache to normal",
                cache.Name())};
    }
}

Cancelled CancelFlush(const Cache& cache) {
    if (IsFlushDead(cache)) {
        MendDeadFlush(cache);
        return Cancelled::kDead;
    }
    if (!cache.MayHoldDirty()) {
        throw Failure{fmt::format("there is no flush of {} to cancel", cache.Name()),
                      "in its mode it has no dirty blocks, and is never flushed", "", std::nullopt,
                      FailureKind::kNotFound};
    }
    const bool isRunning = IsDryRun() && IsFlushRecorded(cache, FLASHCACHE_FLUSH_STATE_FLUSHING);
    const Outcome outcome = Change(
        Attempt, [&] { return Step{"VEMOFlashCacheFlushCancel", {cache.device}, RefreshingCopy()}; },
        [&] { return VEMOFlashCacheFlushCancel(cache.device.c_str()); }, isRunning ? 1 : -1);
    if (outcome.result == 0) {
        throw Failure{fmt::format("the flush of {} was done already", cache.Name()), "",
                      fmt::format("vemocachectl state set {} normal", cache.Name()), std::nullopt,
                      FailureKind::kRefused};
    }
    if (outcome.result < 0) {
        throw Failure{fmt::format("there is no flush of {} to cancel", cache.Name()),
                      outcome.slot.code == 0 ? "none is recorded as running" : Meaning(outcome.slot.code),
                      fmt::format("vemocachectl flush --status {}", cache.Name()), outcome.slot,
                      FailureKind::kNotFound};
    }
    return IsDryRun() ? Cancelled::kRunning : AwaitCancelled(cache);
}

}  // namespace cli
