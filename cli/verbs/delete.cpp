#include <fmt/format.h>

#include "caches/describe.h"
#include "caches/entry.h"
#include "caches/flush_lock.h"
#include "caches/idle.h"
#include "caches/kernel_state.h"
#include "caches/metadata.h"
#include "caches/programs.h"
#include "caches/ssd_content.h"
#include "flush/run.h"
#include "output/answer.h"
#include "support/background_call.h"
#include "support/consent.h"
#include "support/device.h"
#include "support/dry_run.h"
#include "support/lifecycle_lock.h"
#include "verbs/verb.h"

namespace cli {
namespace {

struct DeleteOptions {
    std::string cache;
    bool fast = false;
    bool discardDirty = false;
};

// The library cannot look up the status of a write-through or broken cache, but takes one that it is given.
struct GivenStatus {
    std::string ssd;
    std::string volume;
    FLASHCACHE_STAT record{};

    explicit GivenStatus(const Cache& cache) : ssd(cache.Ssd()), volume(cache.Volume()) {
        record.SSDDevPath = ssd.data();
        record.SpacePath = volume.data();
        // As the kernel tells modes: the kinds of write-back are one to it.
        record.WriteMode =
            cache.MayHoldDirty() ? FLASHCACHE_WRITE_BACK : cache.Mode().value_or(FLASHCACHE_WRITE_BACK);
    }
};

void RequireKnownMode(const DeleteOptions& options, const Cache& cache) {
    // What the kernel calls write-through has no status, and no dirty blocks either.
    const bool writeThrough = cache.pair && cache.pair->mode == FLASHCACHE_WRITE_THRU;
    const bool consented = cache.entry != nullptr && options.discardDirty;
    if (!cache.stat && !writeThrough && !consented) {
        throw Failure{
            fmt::format("the cache {} cannot be deleted", cache.Name()),
            "its status cannot be read: whether it holds dirty blocks is not known",
            fmt::format("\"vemocachectl -v status {0}\" shows why; a configured cache is deleted all the "
                        "same, with what it alone holds, by \"vemocachectl delete {0} --discard-dirty\"",
                        cache.Name()),
            cache.statError, FailureKind::kUnknownState};
    }
}

std::string LossOfDelete(const Cache& cache, std::optional<std::uint64_t> dirty) {
    if (!dirty) {
        return fmt::format("drop the dirty blocks of {}, an unknown number, unwritten", cache.Name());
    }
    return fmt::format("drop {} dirty blocks ({}) of {} that are not on the volume {} yet", *dirty,
                       HumanSize(*dirty * cache.BlockSize()), cache.Name(), cache.Volume());
}

// What the admin knows and agrees to before anything is done; questions are asked without the lock.
struct Settled {
    std::optional<std::uint64_t> mayLose = 0;  // dirty blocks that may be dropped; nothing: any number
    Lost lost;                                 // by the flush
};

// Writes the dirty blocks back, or has the admin's consent to their loss.
Settled SettleDirtyBlocks(const Context& context, const DeleteOptions& options, const Cache& cache) {
    const auto dirty = DirtyBlocks(cache.Ssd(), cache.Volume());
    if (options.discardDirty) {
        if (IsDryRun() && dirty != 0U) {
            NoteLoss(LossOfDelete(cache, dirty));
        }
        return {std::nullopt, {}};
    }
    if (options.fast) {
        if (dirty != 0U) {
            RequireConsent({LossOfDelete(cache, dirty), "--discard-dirty"}, false, !context.json);
        }
        return {dirty, {}};
    }
    // The library's own removal goes on when its flush is cancelled, and wipes the SSD then: a flush that
    // may be cancelled has to be over before. Its progress goes to standard error: the answer is one JSON
    // object.
    const Flushed flushed = RunFlush(cache, false, {.keepsState = true});
    if (flushed.end == FlushEnd::kCancelled) {
        Failure failure{fmt::format("the flush was cancelled, {} is not deleted", cache.Name()),
                        "the cache runs as before", ""};
        AddLoss(failure, cache.Volume(), flushed.lost);
        throw Failure(failure);
    }
    return {IsDryRun() ? std::nullopt : std::optional<std::uint64_t>(0), flushed.lost};
}

// Under the lock, right before the step: what was judged before may have changed since.
void RequireStillSettled(const Cache& judged, const Cache& now, const Settled& settled) {
    const std::string refusal = fmt::format("{} is not deleted, it changed meanwhile", judged.Name());
    const std::string repeat = fmt::format("vemocachectl delete {}", judged.Name());
    if (now.device != judged.device || now.Ssd() != judged.Ssd() || now.Volume() != judged.Volume()) {
        throw Failure{refusal, "it was unloaded or loaded by another process", repeat, std::nullopt,
                      FailureKind::kRefused};
    }
    RequireIdle(now);
    const auto dirty =
        now.MayHoldDirty() ? DirtyBlocks(now.Ssd(), now.Volume()) : std::optional<std::uint64_t>(0);
    if (settled.mayLose && (!dirty || *dirty > *settled.mayLose)) {
        const std::string count = dirty ? std::to_string(*dirty) : "an unknown number of";
        throw Failure{refusal,
                      fmt::format("it holds {} dirty blocks now, and {} were agreed to be lost", count,
                                  *settled.mayLose),
                      repeat, std::nullopt, FailureKind::kRefused};
    }
}

// What the deletion itself costs, by consent; whatever is cleaned until then is less.
Lost DroppedBy(const DeleteOptions& options, const Cache& cache) {
    if (!cache.MayHoldDirty() || !(options.fast || options.discardDirty)) {
        return {};
    }
    return {DirtyBlocks(cache.Ssd(), cache.Volume()), cache.BlockSize(), true};
}

Step DeleteStep(const Cache& cache, const FLASHCACHE_STAT& status, bool fast) {
    const std::string ssd = cache.Ssd();
    const std::string volume = cache.Volume();
    const bool isWriteBack = status.WriteMode == FLASHCACHE_WRITE_BACK;
    const auto ofWriteBack = [&](Programs programs) {
        return isWriteBack ? std::move(programs) : Programs();
    };
    return {"VEMOFlashCacheDelete",
            {cache.device, fast ? "1" : "0"},
            Joined({ofWriteBack(WritingKnob("fast_remove", fast ? 1 : 0, ssd, volume)),
                    ofWriteBack(fast ? Programs() : Flushing(ssd, volume)), UnloadingCache(cache.device),
                    ofWriteBack(WipingSsd(ssd)), RemovingModules(ssd)})};
}

void RemoveCache(const DeleteOptions& options, const Cache& cache) {
    const GivenStatus status(cache);
    const int fast = options.fast || options.discardDirty ? 1 : 0;
    const Outcome outcome = Change(
        Uninterrupted, [&] { return DeleteStep(cache, status.record, fast != 0); },
        [&] { return VEMOFlashCacheDelete(cache.device.c_str(), &status.record, fast); });
    if (outcome.result != 0) {
        const Place place = PlaceOf(cache.Ssd(), cache.Volume());
        const bool isDown = place.device.empty() && place.isKnown;
        throw LibraryFailure(
            fmt::format("the cache {} could not be deleted; its device {}", cache.Name(), PlaceText(place)),
            outcome,
            !isDown
                ? "release the device, then repeat the command"
                : fmt::format(
                      "vemocachectl wipe {} --discard-metadata; vemocachectl config remove {} --forget-cache",
                      cache.Ssd(), cache.Name()));
    }
}

// The library wipes after write-back alone. False when the metadata is still there.
bool WipeSsd(const Cache& cache) {
    if (IsDryRun()) {
        if (!cache.MayHoldDirty() || (!cache.IsUp() && HoldsCache(cache.Ssd()))) {
            NoteStep(WipeStep(cache.Ssd()));
        }
        return true;
    }
    if (HoldsCache(cache.Ssd())) {
        Uninterrupted([&] { return VEMOFlashCacheDestroy(cache.Ssd().c_str()); });
    }
    const bool isWiped = !HoldsCache(cache.Ssd());
    if (!isWiped) {
        Note(fmt::format("the SSD {0} could not be wiped: vemocachectl wipe {0} --discard-metadata",
                         cache.Ssd()));
    }
    return isWiped;
}

void Forget(const Cache& cache) {
    if (cache.entry == nullptr) {
        return;
    }
    After("the cache is deleted, but ", [&] { RemoveEntry(cache.Name()); });
}

void TellDeleted(Context& context, const Cache& cache, const Lost& lost, bool isWiped) {
    Record record = Identity(cache);
    record.fields.push_back({"ssd_wiped", "SSD wiped", isWiped});
    std::string headline = fmt::format("Deleted the cache {}; use the volume {} itself from now on.",
                                       cache.Name(), cache.Volume());
    AddLoss(record, headline, cache.Volume(), lost);
    context.failed = !lost.IsNone() && !lost.isAgreed;
    Answer answer = One("deleted", record, headline);
    answer.tellsHarm = context.failed;
    Print(answer, context.json);
}

// A cache that is not up has no blocks that could be written back; the ways on are others.
void RequireLoaded(const Cache& cache) {
    if (cache.IsUp() || cache.mayBeUp) {
        return;
    }
    const std::string forget = fmt::format("vemocachectl config remove {} --forget-cache", cache.Name());
    if (!IsBlockDevice(cache.Ssd())) {
        throw Failure{fmt::format("the cache {} cannot be deleted", cache.Name()),
                      fmt::format("its SSD {} is not there", cache.Ssd()),
                      "bring the SSD back; if it is lost with all that it holds: " + forget, std::nullopt,
                      FailureKind::kNotFound};
    }
    throw Failure{fmt::format("the cache {} is not loaded", cache.Name()), "a deletion flushes it first",
                  fmt::format("vemocachectl load {0}; vemocachectl delete {0}. If its blocks may be lost: "
                              "vemocachectl wipe {1} --discard-metadata; {2}",
                              cache.Name(), cache.Ssd(), forget),
                  std::nullopt, FailureKind::kRefused};
}

// Whether the SSD of a cache that is down shows that nothing is lost with it: a clean cache of this volume
// lies there, or nothing any more, where a deletion was killed after its wipe.
bool IsDownAndClean(const Cache& cache) {
    if (cache.entry == nullptr || cache.IsUp() || cache.mayBeUp || !IsBlockDevice(cache.Ssd())) {
        return false;
    }
    const auto content = ReadSsdContent(cache.Ssd());
    return content ? content->inOrder && content->dirtyBlocks == 0U && cache.ForeignVolume().empty()
                   : IsBlank(cache.Ssd());
}

void DeleteWhatIsDown(Context& context, const std::string& name) {
    const LifecycleLock lock("delete");
    Inventory inventory = TakeInventory();
    const Cache& cache = Find(inventory, name);
    if (!IsDownAndClean(cache)) {
        throw Failure{fmt::format("{} is not deleted, it changed meanwhile", name),
                      "it was loaded by another process, or its SSD was written",
                      fmt::format("vemocachectl delete {}", name), std::nullopt, FailureKind::kRefused};
    }
    RequireUnused(cache.Ssd(), "SSD");
    const bool isWiped = WipeSsd(cache);
    Forget(cache);
    TellDeleted(context, cache, {}, isWiped);
}

void TakeDownForGood(Context& context, const DeleteOptions& options, const Cache& judged,
                     const Settled& settled) {
    const LifecycleLock lock("delete");
    Inventory inventory = TakeInventory();
    const Cache& cache = FindRunning(inventory, judged.Name());
    RequireKnownMode(options, cache);
    const FlushLock noFlush(cache);
    RequireStillSettled(judged, cache, settled);
    const Lost dropped = DroppedBy(options, cache);
    RemoveCache(options, cache);
    const bool isWiped = WipeSsd(cache);
    Forget(cache);
    TellDeleted(context, cache, dropped.isAgreed ? dropped : settled.lost, isWiped);
}

void Delete(Context& context, const DeleteOptions& options) {
    Inventory first = TakeInventory();
    if (const Cache& named = Find(first, options.cache); IsDownAndClean(named)) {
        DeleteWhatIsDown(context, named.Name());
        return;
    }
    RequireLoaded(Find(first, options.cache));
    const Cache& judged = FindRunning(first, options.cache);
    RequireKnownMode(options, judged);
    RequireIdle(judged);
    const Settled settled = judged.MayHoldDirty() ? SettleDirtyBlocks(context, options, judged) : Settled{};
    try {
        TakeDownForGood(context, options, judged, settled);
    } catch (Failure& failure) {
        AddLoss(failure, judged.Volume(), settled.lost);
        if (IsOfFlush(HandleStateOf(judged))) {
            failure.next += fmt::format("{}\"vemocachectl state set {} normal\" returns it to caching",
                                        failure.next.empty() ? "" : "; ", judged.Name());
        }
        throw;
    }
}

std::vector<Argument> DeclareDelete(DeleteOptions& options) {
    return {CacheArgument(options.cache),
            {.name = "--fast",
             .help = "leave out the flush; with dirty blocks, asks on a terminal or wants --discard-dirty",
             .target = &options.fast},
            {.name = "--discard-dirty",
             .help = "leave out the flush and consent to the loss of all dirty blocks",
             .target = &options.discardDirty}};
}

}  // namespace

Verb DeleteVerb() {
    return MakeVerb<DeleteOptions>(
        "delete",
        "Flush a cache, take it down, wipe its SSD and remove its entry; nothing is lost, unless told to",
        "vemocachectl delete cachedev_0", DeclareDelete, Delete);
}

}  // namespace cli
