#include "flush/run.h"

#include <fmt/format.h>

#include "caches/flush_lock.h"
#include "caches/kernel_state.h"
#include "flush/foreign.h"
#include "flush/progress.h"
#include "flush/record.h"
#include "output/answer.h"
#include "verbs/verb.h"

namespace cli {
namespace {

struct FlushOptions {
    std::string cache;
    bool cancel = false;
    bool status = false;
    bool follow = false;
};

// `result` is "done" or "cancelled" at the end of a flush, else empty.
Record DescribeFlush(const std::string& name, const std::string& result, const std::optional<Lost>& lost) {
    Inventory inventory = TakeInventory();
    const Cache& cache = FindRunning(inventory, name);
    Record record{{{"name", "Name", cache.Name()},
                   {"result", "Result", KnownText(result), Format::kPlain, false, true},
                   {"flush_state", "Flush state",
                    cache.entry == nullptr ? Value() : KnownText(cache.entry->FlushState)},
                   {"running", "Running", FlushRuns(cache)},
                   {"handle_state", "Handle state", HandleStateText(HandleStateOf(cache))}}};
    const auto progress = FieldsOf(ProgressMeter(cache).Read());
    record.fields.insert(record.fields.end(), progress.begin(), progress.end());
    if (lost) {
        const auto losses = FieldsOf(*lost);
        record.fields.insert(record.fields.end(), losses.begin(), losses.end());
    }
    return record;
}

void TellFlushed(const Context& context, const Cache& cache, const std::string& result,
                 const std::string& headline, const std::optional<Lost>& lost = std::nullopt) {
    Answer answer = One("flush", DescribeFlush(cache.Name(), result, lost), headline);
    answer.tellsHarm = context.failed;
    Print(answer, context.json);
}

std::string HeadlineOfFlush(const Cache& cache, const Flushed& flushed) {
    if (flushed.end == FlushEnd::kCancelled) {
        return fmt::format("Cancelled; {} is as it was before.", cache.Name());
    }
    if (!cache.MayHoldDirty()) {
        return fmt::format("{} has no dirty blocks in its mode, nothing was to do.", cache.Name());
    }
    return fmt::format("Flushed {0}. It takes no new blocks until \"vemocachectl state set {0} normal\".",
                       cache.Name());
}

void FlushOne(Context& context, const Cache& cache) {
    const Flushed flushed = RunFlush(cache, context.json);
    std::string headline = HeadlineOfFlush(cache, flushed);
    if (!flushed.lost.IsNone()) {
        headline = TextOf(flushed.lost, cache.Volume()) + " " + headline;
    }
    context.failed = flushed.end == FlushEnd::kCancelled || !flushed.lost.IsNone();
    TellFlushed(context, cache, flushed.end == FlushEnd::kDone ? "done" : "cancelled", headline,
                flushed.lost);
}

std::string TextOf(Cancelled cancelled, const Cache& cache) {
    return cancelled == Cancelled::kRunning
               ? fmt::format("Cancelled the flush of {}.", cache.Name())
               : fmt::format("The flush of {} had no process any more; its record and its state are normal.",
                             cache.Name());
}

std::string DeadText(const Cache& cache) {
    return fmt::format(
        "No process runs the recorded flush; \"vemocachectl flush --cancel {0}\" returns {0} to normal.",
        cache.Name());
}

void Flush(Context& context, const FlushOptions& options) {
    Inventory inventory = TakeInventory();
    const Cache& cache = FindRunning(inventory, options.cache);
    if (options.cancel) {
        TellFlushed(context, cache, "cancelled", TextOf(CancelFlush(cache), cache));
    } else if (options.status) {
        if (options.follow) {
            FollowFlush(cache, context.json);
        }
        TellFlushed(context, cache, "", IsFlushDead(cache) ? DeadText(cache) : "");
    } else {
        FlushOne(context, cache);
    }
}

std::vector<Argument> DeclareFlush(FlushOptions& options) {
    return {
        CacheArgument(options.cache),
        {.name = "--cancel", .help = "cancel a flush that another process runs", .target = &options.cancel},
        {.name = "--status",
         .help = "show how far a flush has come",
         .target = &options.status,
         .excludes = {"--cancel"}},
        {.name = "--follow",
         .help = "with --status: show it until it is over",
         .target = &options.follow,
         .needs = {"--status"}}};
}

}  // namespace

Verb FlushVerb() {
    return MakeVerb<FlushOptions>(
        "flush",
        "Write all dirty blocks back to the volume, with progress; Ctrl-C cancels and restores the former "
        "state",
        "vemocachectl flush cachedev_0\n  vemocachectl flush --status --follow cachedev_0", DeclareFlush,
        Flush);
}

}  // namespace cli
