#include "flush/run.h"

#include <fmt/format.h>

#include "caches/entry.h"
#include "caches/flush_lock.h"
#include "caches/kernel_state.h"
#include "caches/programs.h"
#include "flush/pace.h"
#include "flush/progress.h"
#include "flush/record.h"
#include "flush/watch.h"
#include "output/answer.h"
#include "support/background_call.h"
#include "support/dry_run.h"

namespace cli {
namespace {

void RequireRecord(const Cache& cache) {
    if (cache.entryIsUnknown) {
        throw Failure{fmt::format("the cache {} cannot be flushed", cache.Name()),
                      "whether it has a configuration entry, in which a flush keeps its state, is not known",
                      "vemocachectl config list", std::nullopt, FailureKind::kConfiguration};
    }
    if (cache.entry == nullptr) {
        throw Failure{fmt::format("the cache {} cannot be flushed", cache.Name()),
                      "it has no configuration entry, in which a flush keeps its state",
                      fmt::format("vemocachectl config adopt {}", cache.Name()), std::nullopt,
                      FailureKind::kRefused};
    }
    // Flushes read the copy; after a restart nothing else may have made it yet.
    After(fmt::format("the cache {} is not flushed and runs on: ", cache.Name()), RefreshCopy);
}

Failure WhyFailed(const Cache& cache, const Outcome& outcome) {
    const Progress now = ProgressMeter(cache).Read();
    const std::string left = now.dirtyBlocks ? std::to_string(*now.dirtyBlocks) : "its";
    Failure failure = LibraryFailure(
        fmt::format("the flush of {} failed; the cache runs on and keeps {} dirty blocks", cache.Name(),
                    left),
        outcome,
        fmt::format("mend the cause, then flush again; {}. If the SSD is dead: \"vemocachectl delete "
                    "{} --discard-dirty\" gives its dirty blocks up",
                    kConfigAdvice, cache.Name()));
    if (const auto failed = WhyWriteBacksFailed(now)) {
        failure.why = *failed;
    }
    if (now.ssdFailed) {
        failure.next = fmt::format("vemocachectl doctor {} tells more; {}", cache.Name(), failure.next);
    } else if (now.writeErrors.value_or(0) > 0) {
        failure.next = fmt::format(
            "look at the volume's health in dmesg and mend it; as the last resort \"vemocachectl attribute "
            "set {} force-remove\" lets a flush give up the blocks that the volume refuses: they are LOST "
            "then",
            cache.Name());
    }
    return failure;
}

// What a flush before this one left is no state to go back to after a cancellation.
void LeaveEarlierFlush(const Cache& cache) {
    const bool isDead = IsFlushRecorded(cache, FLASHCACHE_FLUSH_STATE_FLUSHING);
    if (isDead) {
        Note(fmt::format("an earlier flush of {} did not end in order; it is begun again", cache.Name()));
        // A cancellation that comes before the new record would take the old one and be lost with it.
        MendFlushRecord(cache);
    }
    if ((isDead || IsFlushRecorded(cache, FLASHCACHE_FLUSH_STATE_FLUSH_DONE)) &&
        IsOfFlush(HandleStateOf(cache))) {
        EnsureState(cache, FLASHCACHE_HANDLE_STATE_NORMAL);
    }
    // A cancellation would take the earlier flush's record for that of the one that is just beginning.
    MendFlushRecord(cache);
}

// Runs the library's flush to its end, whatever that is.
Outcome FlushAndWatch(const Cache& cache, LossWatch& losses, FlushWatch& watch) {
    BackgroundCall flush([&] { return VEMOFlashCacheFlush(cache.device.c_str()); });
    watch.Follow(flush, losses);
    return flush.Result();
}

// The library leaves the cache as one that is to be taken down.
void ReturnToCaching(const Cache& cache, FLASHCACHE_HANDLE_STATE former) {
    EnsureState(cache, former);
    After(fmt::format("{} is flushed and caches again, but ", cache.Name()), [&] { MendFlushRecord(cache); });
}

void RequireStopped(const Cache& cache, const Outcome& outcome, FLASHCACHE_HANDLE_STATE former) {
    EnsureState(cache, former);
    if (outcome.result < 0) {
        throw WhyFailed(cache, outcome);
    }
}

// What a dry run tells of the flush itself.
void NoteFlush(const Cache& cache, const FlushPlan& plan, FLASHCACHE_HANDLE_STATE former) {
    const std::string ssd = cache.Ssd();
    const std::string volume = cache.Volume();
    NoteStep({"VEMOFlashCacheFlush", {cache.device}, Flushing(ssd, volume)});
    const auto dirty = DirtyBlocks(ssd, volume);
    NoteOutlook({"dirty_blocks", "Blocks to write back", dirty ? Value(*dirty) : Value()});
    NoteOutlook({"dirty_bytes", "Bytes to write back", BytesOf(dirty, cache.BlockSize()), Format::kBytes});
    const auto seconds = ExpectedSeconds(cache, dirty);
    NoteOutlook({"expected_seconds", "Time, as in the last flush", seconds ? Value(*seconds) : Value(),
                 Format::kSeconds});
    if (!plan.keepsState) {
        NoteStep(StateStep(ssd, volume, former));
        MarkLoaded(cache.Name(), true);
    }
}

// How much there is to do, and how long that took per block the last time.
void TellAhead(const Cache& cache) {
    const auto dirty = DirtyBlocks(cache.Ssd(), cache.Volume());
    if (!dirty || *dirty == 0) {
        return;
    }
    const auto seconds = ExpectedSeconds(cache, dirty);
    Note(fmt::format("{} has {} dirty blocks ({}) to write back; {}", cache.Name(), *dirty,
                     HumanSize(*dirty * cache.BlockSize()),
                     seconds ? fmt::format("some {} seconds, as fast as the last time", *seconds)
                             : "how long that takes will show, no earlier flush was measured"));
}

}  // namespace

Flushed RunFlush(const Cache& cache, bool json, const FlushPlan& plan) {
    if (!cache.MayHoldDirty()) {
        return {};
    }
    RequireRecord(cache);
    const FlushLock lock(cache);
    LeaveEarlierFlush(cache);
    const FLASHCACHE_HANDLE_STATE former = HandleStateOf(cache);
    LossWatch losses(cache);
    if (IsDryRun()) {
        if (losses.GivesUp()) {
            NoteLoss("give up the blocks that the volume refuses, as the attribute is force-remove");
        }
        NoteFlush(cache, plan, former);
        return {};
    }
    if (losses.GivesUp()) {
        Note(fmt::format("the attribute of {} is force-remove: blocks that the volume refuses are LOST",
                         cache.Name()));
    }
    if (!json) {
        TellAhead(cache);
    }
    FlushWatch watch(cache, plan, json);
    const Outcome outcome = FlushAndWatch(cache, losses, watch);
    watch.Pace().Keep(cache);
    const Lost lost = losses.Read();
    try {
        if (outcome.result != 1) {
            RequireStopped(cache, outcome, former);
        } else if (!plan.keepsState) {
            ReturnToCaching(cache, former);
        }
    } catch (Failure& failure) {
        AddLoss(failure, cache.Volume(), lost);
        throw;
    }
    return {outcome.result == 1 ? FlushEnd::kDone : watch.End(), lost, watch.Why()};
}

}  // namespace cli
