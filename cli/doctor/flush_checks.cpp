// Flushes, and what they left behind.
#include "caches/kernel_state.h"
#include "doctor/check.h"
#include "doctor/parts.h"

namespace cli {
namespace {

constexpr std::uint64_t kStallSeconds = 60;

std::optional<FLASHCACHE_HANDLE_STATE> StateOf(const CacheFacts& cache) {
    return cache.kernel && cache.kernel->knobs ? std::optional(HandleStateIn(*cache.kernel->knobs))
                                               : std::nullopt;
}

Value StateText(FLASHCACHE_HANDLE_STATE state) {
    return state == FLASHCACHE_HANDLE_STATE_UNKNOWN ? Value() : HandleStateText(state);
}

std::optional<Finding> DeadFlush(const CacheFacts& cache) {
    if (!cache.IsFlushRecorded() || cache.flush.runs || cache.mayBeUp) {
        return std::nullopt;
    }
    Finding finding{"A flush is recorded as running, but no process runs it."};
    finding.details = DirtyFields(cache);
    if (cache.IsUp()) {
        finding.commands = {CommandOn("flush --cancel", cache)};
        finding.advice = fmt::format(
            "The command returns record and state to normal; \"{}\" begins the flush again instead. A flush "
            "that another program than vemocachectl runs takes the command for its cancellation.",
            CommandOn("flush", cache));
    } else {
        finding.commands = {CommandOn("load", cache)};
        finding.advice = "The cache is not up. Loading it takes the record back.";
    }
    return finding;
}

// Why no block comes clean, as far as kernel and knobs tell.
std::string WhyStalled(const CacheFacts& cache) {
    if (const auto errors = cache.Error("write_disk_sync_errors").value_or(0); errors > 0) {
        return fmt::format("{} write-backs failed", errors);
    }
    const auto state = StateOf(cache);
    if (state && !IsOfFlush(*state)) {
        return fmt::format("its knobs are not those of a flush, its handle state is {}",
                           ToText({"", "", StateText(*state)}));
    }
    if (cache.Knob("stop_sync").value_or(0) != 0) {
        return "stop_sync is set";
    }
    return cache.Knob("max_clean_ios_total") == 0 ? "max_clean_ios_total is 0" : "";
}

std::optional<Finding> StalledFlush(const CacheFacts& cache) {
    const std::uint64_t seconds = cache.flush.secondsWithoutProgress.value_or(0);
    if (!cache.flush.runs || seconds < kStallSeconds || cache.DirtyBlocks().value_or(0) == 0) {
        return std::nullopt;
    }
    const std::string why = WhyStalled(cache);
    Finding finding{fmt::format("Its flush has made no progress for {} seconds{}.", seconds,
                                why.empty() ? "" : ": " + why)};
    finding.details = DirtyFields(cache);
    finding.details.push_back(
        Number("seconds_without_progress", "Without progress", seconds, Format::kSeconds));
    finding.details.push_back({"reason", "Reason", KnownText(why)});
    finding.commands = {CommandOn("flush --status", cache), "dmesg | tail -n 50"};
    finding.advice =
        fmt::format("{}. \"{}\" ends the flush and keeps the dirty blocks.",
                    why.empty() ? "No reason shows: the volume may be slow or hang" : "Mend the cause",
                    CommandOn("flush --cancel", cache));
    return finding;
}

// A flush that is recorded, done or under way explains its state.
bool IsExplained(const CacheFacts& cache, FLASHCACHE_HANDLE_STATE state) {
    const bool isDone = cache.entry && cache.entry->flushState == "flush_done";
    return state == FLASHCACHE_HANDLE_STATE_NORMAL || cache.flush.runs ||
           (IsOfFlush(state) && (isDone || cache.IsFlushRecorded()));
}

std::optional<Finding> OddState(const CacheFacts& cache) {
    const auto state = StateOf(cache);
    if (!state || !cache.MayHoldDirty() || IsExplained(cache, *state)) {
        return std::nullopt;
    }
    const bool isKnown = *state != FLASHCACHE_HANDLE_STATE_UNKNOWN;
    Finding finding{isKnown ? fmt::format("It is in the handle state {}, and no flush is recorded.",
                                          ToText({"", "", StateText(*state)}))
                            : "Its knobs make up no known handle state."};
    finding.details = {{"handle_state", "Handle state", StateText(*state)}};
    for (const char* knob : {"cache_all", "do_sync", "max_clean_ios_total", "max_clean_ios_set"}) {
        finding.details.push_back(CountField(knob, knob, cache.Knob(knob)));
    }
    finding.commands = {CommandOn("state set", cache, "normal")};
    finding.advice =
        "In the states flush and repairing it takes no new blocks, in stop-writeback no dirty block is "
        "written "
        "back. If another program set the state on purpose, leave it to that.";
    return finding;
}

std::optional<Finding> ForceRemove(const CacheFacts& cache) {
    if (!cache.kernel || cache.kernel->attribute != FLASHCACHE_ATTRIBUTE_FORCE_REMOVE ||
        !cache.MayHoldDirty()) {
        return std::nullopt;
    }
    Finding finding{"force-remove is set: write-backs that fail lose their blocks."};
    finding.details = DirtyFields(cache);
    finding.commands = {CommandOn("attribute set", cache, "none")};
    finding.advice =
        cache.flush.runs
            ? "A flush runs with it: somebody may have agreed to the loss. Ask before it is reset."
            : "It was left set by an earlier removal; without it a failed write-back keeps its "
              "block and ends the flush.";
    return finding;
}

}  // namespace

std::vector<Check> FlushChecks() {
    return {
        {"VFC-D060",
         Severity::kWarning,
         DataLoss::kNo,
         "A flush is recorded that nobody runs",
         "The entry says that the cache is being flushed, but the process that did it is gone: it was "
         "killed, "
         "or the system went down. Nothing is written back beyond what the kernel does by itself, the cache "
         "takes no new blocks, and programs that go by the record wait for its end for ever. No block is "
         "lost.",
         {Source::kConfiguration, Source::kTable, Source::kLocks},
         DeadFlush},
        {"VFC-D061",
         Severity::kWarning,
         DataLoss::kNo,
         "A flush makes no progress",
         "A flush runs, and its count of dirty blocks has stood still for a minute or more, from one run of "
         "this command to the next. The volume refuses the writes or hangs, or somebody changed the knobs "
         "that "
         "a flush sets. A single run cannot tell: the count of the last one is kept in /run/vemocachectl.",
         {Source::kConfiguration, Source::kTable, Source::kDirtyBlocks, Source::kLocks},
         StalledFlush},
        {"VFC-D062",
         Severity::kWarning,
         DataLoss::kNo,
         "Not in the state normal",
         "The cache is in another handle state than normal, or in none that is known, and no flush explains "
         "it: a program was ended before it set the state back, or knobs were set by hand. New blocks may "
         "not "
         "be cached, or dirty ones not be written back.",
         {Source::kConfiguration, Source::kTable, Source::kKnobs, Source::kLocks},
         OddState},
        {"VFC-D063",
         Severity::kCritical,
         DataLoss::kYes,
         "force-remove is set",
         "The attribute force-remove tells the kernel to give up the blocks that the volume refuses: flushes "
         "and unloadings come to their end without them, and their data are lost. It is meant for the "
         "removal "
         "of a cache whose volume is broken, and for nothing else.",
         {Source::kTable, Source::kAttribute},
         ForceRemove},
    };
}

}  // namespace cli
