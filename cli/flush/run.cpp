#include "flush/run.h"

#include <fmt/format.h>

#include <thread>

#include "caches/entry.h"
#include "caches/kernel_state.h"
#include "flush/display.h"
#include "flush/flush_lock.h"
#include "output/answer.h"
#include "support/background_call.h"

namespace cli {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

void RequireRecord(const Cache& cache) {
    if (cache.entry == nullptr) {
        throw Failure{fmt::format("the cache {} cannot be flushed", cache.Name()),
                      "it has no configuration entry, in which a flush keeps its state", ""};
    }
    // Flushes read the copy; after a restart nothing else may have made it yet.
    RefreshCopy();
}

bool IsRecorded(const Cache& cache, FLASHCACHE_FLUSH_STATE state) {
    return VEMOFlashCacheIsRemoveInFlushState(cache.Ssd().c_str(), state) == 1;
}

int Cancel(const Cache& cache) {
    return Attempt([&] { return VEMOFlashCacheFlushCancel(cache.device.c_str()); }).result;
}

// Shows the flush until it is over; an interruption cancels it.
void Watch(BackgroundCall& flush, const Cache& cache, bool json) {
    ProgressMeter meter(cache);
    ProgressDisplay display(cache.Name(), json);
    bool wanted = false;
    bool asked = false;
    for (;;) {
        display.Show(meter.Read());
        // A flush that is just beginning has not recorded itself and cannot be cancelled yet.
        const auto event = flush.WaitFor(wanted && !asked ? milliseconds(100) : display.Interval());
        if (event == BackgroundCall::Event::kOver) {
            display.Show(meter.Read());
            return;
        }
        if (event == BackgroundCall::Event::kInterrupted && !wanted) {
            wanted = true;
            display.Say("cancelling: the flush sees it within some 5 seconds and restores the former state");
        }
        if (wanted && !asked) {
            asked = Cancel(cache) >= 0;
        }
    }
}

// The library has restored the state; where a knob write of it failed, once more.
void EnsureState(const Cache& cache, FLASHCACHE_HANDLE_STATE former) {
    if (former == FLASHCACHE_HANDLE_STATE_UNKNOWN || HandleStateOf(cache) == former) {
        return;
    }
    const Outcome outcome = Attempt(
        [&] { return VEMOFlashCacheHandleStateSet(cache.Ssd().c_str(), cache.Volume().c_str(), former); });
    if (outcome.result != 0) {
        throw LibraryFailure(
            fmt::format("the flush of {} was stopped, but its former state could not be restored",
                        cache.Name()),
            outcome, fmt::format("vemocachectl state set {} normal", cache.Name()));
    }
}

Failure WhyFailed(const Cache& cache, const Outcome& outcome) {
    const Progress now = ProgressMeter(cache).Read();
    const std::string left = now.dirtyBlocks ? std::to_string(*now.dirtyBlocks) : "its";
    Failure failure =
        LibraryFailure(fmt::format("the flush of {} failed; the cache runs on and keeps {} dirty blocks",
                                   cache.Name(), left),
                       outcome, "mend the cause, then flush again");
    if (const auto refused = now.writeErrors.value_or(0); refused > 0) {
        failure.why = fmt::format("the volume {} refused {} writes", cache.Volume(), refused);
        failure.next = fmt::format(
            "look at the volume's health in dmesg; \"vemocachectl attribute set {} force-remove\" lets a "
            "flush go on past such errors, and the blocks that the volume refuses are LOST then",
            cache.Name());
    }
    return failure;
}

// Counts what a flush gives up from before it begins to its end.
class LossMeter {
  public:
    explicit LossMeter(const Cache& cache)
        : cache_(cache),
          force_(AttributeOf(cache) == FLASHCACHE_ATTRIBUTE_FORCE_REMOVE),
          before_(force_ ? WriteErrors(cache.Ssd(), cache.Volume()) : std::nullopt) {}

    [[nodiscard]] Lost Read() const {
        Lost lost;
        lost.blockSize = cache_.BlockSize();
        if (!force_) {
            return lost;
        }
        // The kernel counts anew when a sync begins; one that ran already goes on with its count, and what it
        // refused before cannot be told from what it gave up since.
        const auto now = WriteErrors(cache_.Ssd(), cache_.Volume());
        const bool isAnew = now && before_ && (*before_ == 0 || *now < *before_);
        lost.blocks = isAnew ? now : std::nullopt;
        return lost;
    }

  private:
    const Cache& cache_;
    bool force_;
    std::optional<std::uint64_t> before_;
};

}  // namespace

std::vector<Field> Lost::Fields() const {
    return {{"lost_blocks", "Lost blocks", blocks ? Value(*blocks) : Value()},
            {"lost_bytes", "Lost", BytesOf(blocks, blockSize), Format::kBytes}};
}

std::string Lost::Text(const Cache& cache) const {
    std::string number = "an unknown number of blocks may be LOST";
    if (blocks) {
        const std::string bytes = blockSize == 0 ? "" : fmt::format(", {} bytes", *blocks * blockSize);
        number = fmt::format("{} blocks{} are LOST", *blocks, bytes);
    }
    return fmt::format("{}: the volume {} refused them, and force-remove gave them up.", number,
                       cache.Volume());
}

Flushed RunFlush(const Cache& cache, bool json) {
    RequireRecord(cache);
    const FlushLock lock(cache);
    if (IsRecorded(cache, FLASHCACHE_FLUSH_STATE_FLUSHING)) {
        Note(fmt::format("an earlier flush of {} did not end in order; it is begun again", cache.Name()));
    }
    const FLASHCACHE_HANDLE_STATE former = HandleStateOf(cache);
    const LossMeter meter(cache);
    BackgroundCall flush([&] { return VEMOFlashCacheFlush(cache.device.c_str()); });
    Watch(flush, cache, json);
    if (flush.Result().result == 1) {
        return {FlushEnd::kDone, meter.Read()};
    }
    EnsureState(cache, former);
    if (flush.Result().result < 0) {
        throw WhyFailed(cache, flush.Result());
    }
    return {FlushEnd::kCancelled, meter.Read()};
}

void FollowFlush(const Cache& cache, bool json) {
    ProgressMeter meter(cache);
    ProgressDisplay display(cache.Name(), json);
    while (IsRecorded(cache, FLASHCACHE_FLUSH_STATE_FLUSHING)) {
        display.Show(meter.Read());
        std::this_thread::sleep_for(display.Interval());
    }
}

void CancelFlush(const Cache& cache) {
    const Outcome outcome = Attempt([&] { return VEMOFlashCacheFlushCancel(cache.device.c_str()); });
    if (outcome.result == 0) {
        throw Failure{fmt::format("the flush of {} was done already", cache.Name()), "",
                      fmt::format("vemocachectl state set {} normal returns it to caching", cache.Name())};
    }
    if (outcome.result < 0) {
        throw Failure{fmt::format("there is no flush of {} to cancel", cache.Name()),
                      outcome.slot.code == 0 ? "none is recorded as running" : Meaning(outcome.slot.code),
                      fmt::format("vemocachectl flush --status {} shows its state", cache.Name()),
                      outcome.slot};
    }
    // The flush looks every 5 seconds.
    const auto deadline = std::chrono::steady_clock::now() + seconds(20);
    while (HandleStateOf(cache) == FLASHCACHE_HANDLE_STATE_FLUSH) {
        if (std::chrono::steady_clock::now() > deadline) {
            throw Failure{
                fmt::format("the flush of {} is recorded as cancelled, but no flush answered", cache.Name()),
                "the process that ran it may be gone; the device is still in the state flush",
                fmt::format("vemocachectl state set {} normal", cache.Name())};
        }
        std::this_thread::sleep_for(milliseconds(200));
    }
}

}  // namespace cli
