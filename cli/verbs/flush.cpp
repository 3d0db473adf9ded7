#include "flush/run.h"

#include <fmt/format.h>

#include "caches/flush_lock.h"
#include "caches/kernel_state.h"
#include "flush/foreign.h"
#include "flush/progress.h"
#include "flush/record.h"
#include "output/answer.h"
#include "support/time.h"
#include "verbs/verb.h"

namespace cli {
namespace {

struct FlushOptions {
    std::string cache;
    bool cancel = false;
    bool status = false;
    bool follow = false;
    bool keep = false;
    std::string deadline;
    std::int32_t untilPercent = 0;
    std::int32_t stallSeconds = 0;
};

constexpr int kExitStalled = 4;

// `result` is how a flush ended, else empty.
Record DescribeFlush(const std::string& name, const std::string& result) {
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
    return record;
}

void TellFlush(const Context& context, const Cache& cache, const std::string& result,
               const std::string& headline) {
    Print(One("flush", DescribeFlush(cache.Name(), result), headline), context.json);
}

std::string HeadlineOfDone(const Cache& cache, const FlushOptions& options) {
    if (!cache.MayHoldDirty()) {
        return fmt::format("{} has no dirty blocks in its mode, nothing was to do.", cache.Name());
    }
    return options.keep
               ? fmt::format(
                     "Flushed {0}. It takes no new blocks until \"vemocachectl state set {0} normal\".",
                     cache.Name())
               : fmt::format("Flushed {}, which caches on.", cache.Name());
}

std::string HeadlineOfFlush(const Cache& cache, const FlushOptions& options, const Flushed& flushed) {
    const std::string rest = fmt::format("what is still dirty stays so, and {} caches on", cache.Name());
    switch (flushed.end) {
        case FlushEnd::kCancelled:
            return fmt::format("Cancelled; {} is as it was before.", cache.Name());
        case FlushEnd::kDeadline:
            return fmt::format("The time of the flush is over; {}.", rest);
        case FlushEnd::kEnough:
            return fmt::format("{} percent of what was dirty is clean; {}.", options.untilPercent, rest);
        case FlushEnd::kStalled:
            return fmt::format("The flush was given up, {}; {}.", flushed.why, rest);
        case FlushEnd::kDone:
            break;
    }
    return HeadlineOfDone(cache, options);
}

// In JSON; never renamed.
const char* ResultOf(FlushEnd end) {
    switch (end) {
        case FlushEnd::kCancelled:
            return "cancelled";
        case FlushEnd::kDeadline:
            return "deadline";
        case FlushEnd::kEnough:
            return "until";
        case FlushEnd::kStalled:
            return "stalled";
        case FlushEnd::kDone:
            break;
    }
    return "done";
}

FlushPlan PlanOf(const FlushOptions& options) {
    using std::chrono::system_clock;
    FlushPlan plan{.keepsState = options.keep};
    if (!options.deadline.empty()) {
        // The verb's declaration has refused every other text.
        const auto span = SpanUntil(options.deadline, system_clock::now());
        plan.deadline = std::chrono::steady_clock::now() + span.value_or(std::chrono::seconds(0));
    }
    if (options.untilPercent > 0) {
        plan.untilPercent = options.untilPercent;
    }
    if (options.stallSeconds > 0) {
        plan.stall = std::chrono::seconds(options.stallSeconds);
    }
    return plan;
}

void TellFlushed(const Context& context, const Cache& cache, const Flushed& flushed, std::string headline) {
    Record record = DescribeFlush(cache.Name(), ResultOf(flushed.end));
    record.fields.push_back({"reason", "Reason", KnownText(flushed.why), Format::kPlain, false, true});
    AddLoss(record, headline, cache.Volume(), flushed.lost);
    Answer answer = One("flush", record, headline);
    answer.tellsHarm = context.failed;
    Print(answer, context.json);
}

void FlushOne(Context& context, const Cache& cache, const FlushOptions& options) {
    const Flushed flushed = RunFlush(cache, context.json, PlanOf(options));
    const bool isStalled = flushed.end == FlushEnd::kStalled;
    context.failed = flushed.end == FlushEnd::kCancelled || isStalled || !flushed.lost.IsNone();
    if (isStalled && flushed.lost.IsNone()) {
        context.exitCode = kExitStalled;
    }
    TellFlushed(context, cache, flushed, HeadlineOfFlush(cache, options, flushed));
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
        TellFlush(context, cache, "cancelled", TextOf(CancelFlush(cache), cache));
    } else if (options.status) {
        if (options.follow) {
            FollowFlush(cache, context.json);
        }
        TellFlush(context, cache, "", IsFlushDead(cache) ? DeadText(cache) : "");
    } else {
        FlushOne(context, cache, options);
    }
}

std::string CheckDeadline(const std::string& text) {
    return SpanUntil(text, std::chrono::system_clock::now()) ? "" : "no time such as 06:00, 90m or 8h";
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
         .needs = {"--status"}},
        {.name = "--keep",
         .help = "leave the cache in the state flush, in which it takes no new blocks",
         .target = &options.keep,
         .excludes = {"--cancel", "--status"}},
        {.name = "--deadline",
         .help = "end at that time (06:00) or after that time (90m, 8h), and leave the rest dirty",
         .target = &options.deadline,
         .check = CheckDeadline,
         .excludes = {"--cancel", "--status"},
         .valueName = "TIME"},
        {.name = "--until",
         .help = "end when so many percent of what was dirty are clean",
         .target = &options.untilPercent,
         .range = {1, 100},
         .excludes = {"--cancel", "--status"},
         .valueName = "PERCENT"},
        {.name = "--stall",
         .help = "give up when no block came clean for so many seconds",
         .target = &options.stallSeconds,
         .range = {1, 86400},
         .excludes = {"--cancel", "--status"},
         .valueName = "SECONDS"}};
}

}  // namespace

Verb FlushVerb() {
    Verb verb = MakeVerb<FlushOptions>(
        "flush",
        "Write all dirty blocks back to the volume, with progress; the cache goes on as before then. Ctrl-C "
        "cancels",
        "vemocachectl flush cachedev_0\n  vemocachectl flush cachedev_0 --deadline 06:00 --stall 120\n"
        "  vemocachectl flush --status --follow cachedev_0",
        DeclareFlush, Flush);
    verb.exits =
        "  0  done, or ended as --deadline or --until ask\n"
        "  1  failed or cancelled, or blocks are lost\n"
        "  4  given up by --stall\n";
    return verb;
}

}  // namespace cli
