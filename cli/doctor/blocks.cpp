// How a running cache's blocks are used.
#include "caches/thrashing.h"
#include "doctor/check.h"
#include "doctor/parts.h"

namespace cli {
namespace {

struct Blocks {
    std::uint64_t total = 0;
    std::uint64_t dirty = 0;
};

// Of a running write-back cache; nothing when they are not known.
std::optional<Blocks> BlocksOf(const CacheFacts& cache) {
    const auto total = cache.kernel ? cache.kernel->blocks : std::nullopt;
    const auto dirty = cache.kernel ? cache.kernel->dirtyBlocks : std::nullopt;
    return total && *total > 0 && dirty && cache.MayHoldDirty() ? std::optional(Blocks{*total, *dirty})
                                                                : std::nullopt;
}

// So much above the threshold is more than a burst of writes.
constexpr std::uint64_t kSlackPercent = 10;

std::optional<Finding> ManyDirty(const CacheFacts& cache) {
    const auto blocks = BlocksOf(cache);
    const auto threshold = cache.Knob("dirty_thresh_pct");
    const bool isFlushing = cache.kernel && cache.kernel->knobs &&
                            HandleStateIn(*cache.kernel->knobs) == FLASHCACHE_HANDLE_STATE_FLUSH;
    if (!blocks || !threshold || *threshold < 0 || isFlushing || blocks->dirty >= blocks->total) {
        return std::nullopt;
    }
    const auto limit = static_cast<std::uint64_t>(*threshold);
    if (blocks->dirty * 100 <= limit * blocks->total) {
        return std::nullopt;
    }
    const std::uint64_t percent = blocks->dirty * 100 / blocks->total;
    Finding finding{fmt::format("{}% of its blocks are dirty, above its threshold of {}%.", percent, limit)};
    finding.details = DirtyFields(cache);
    finding.details.push_back(Number("dirty_percent", "Dirty", percent, Format::kPercent));
    finding.details.push_back(Number("dirty_threshold_percent", "Dirty threshold", limit, Format::kPercent));
    finding.severity = percent >= limit + kSlackPercent ? Severity::kWarning : Severity::kInfo;
    finding.commands = {CommandOn("status", cache), CommandOn("knob get", cache)};
    finding.advice =
        "Blocks are written faster than the volume takes them back, or the write-back is stopped: see its "
        "handle state and the volume's load.";
    return finding;
}

std::optional<Finding> AllDirty(const CacheFacts& cache) {
    const auto blocks = BlocksOf(cache);
    if (!blocks || blocks->dirty < blocks->total) {
        return std::nullopt;
    }
    Finding finding{"All of its blocks are dirty: there is no room for another."};
    finding.details = DirtyFields(cache);
    finding.details.push_back(Number("total_blocks", "Blocks", blocks->total));
    finding.details.push_back(CountField("no_room", "Times without room", cache.Counter("no_room")));
    finding.commands = {CommandOn("status", cache)};
    finding.advice = fmt::format(
        "All I/O waits for the volume now. See why it takes nothing back: its handle state, its errors, "
        "dmesg. \"{}\" writes all back and shows how it gets on.",
        CommandOn("flush", cache));
    return finding;
}

std::optional<Finding> Thrashing(const CacheFacts& cache) {
    const auto count = [&](const char* name) {
        return static_cast<std::uint64_t>(std::max<std::int64_t>(cache.Counter(name).value_or(0), 0));
    };
    BlockUse use;
    use.total = cache.kernel ? cache.kernel->blocks.value_or(0) : 0;
    use.cached = cache.kernel ? cache.kernel->cachedBlocks.value_or(0) : 0;
    use.replaced = count("replacement") + count("write_replacement");
    use.reads = count("reads") - std::min(count("reads"), count("uncached_sequential_reads"));
    use.hits = count("read_hits");
    if (!IsThrashing(use)) {
        return std::nullopt;
    }
    Finding finding{
        fmt::format("It is full and gives up blocks before they are read again: {}% of the reads "
                    "hit.",
                    use.hits * 100 / use.reads)};
    finding.details = {Number("total_blocks", "Blocks", use.total),
                       Number("cached_blocks", "Cached blocks", use.cached),
                       Number("replaced_blocks", "Replaced blocks", use.replaced),
                       Number("reads", "Reads", use.reads), Number("read_hits", "Read hits", use.hits)};
    finding.commands = {CommandOn("status", cache)};
    finding.advice = fmt::format(
        "It is too small for what is read, or long sequential reads drive out the rest: \"{}\" lets those "
        "bypass it. The counters count since loading; \"{}\" begins them anew.",
        CommandOn("knob set", cache, "skip_seq_thresh_kb 1024"),
        CommandOn("knob set", cache, "zero_stats 1"));
    return finding;
}

}  // namespace

std::vector<Check> BlockChecks() {
    return {
        {"VFC-D070",
         Severity::kWarning,
         DataLoss::kNo,
         "More dirty blocks than the threshold",
         "More blocks of the cache are dirty than the knob dirty_thresh_pct allows; the kernel writes back "
         "whatever is above it, and does not get on. A little above is an info, ten percent and more a "
         "warning. The more is dirty, the longer a flush takes, and the more hangs on the SSD.",
         {Source::kTable, Source::kKnobs, Source::kDirtyBlocks},
         ManyDirty},
        {"VFC-D071",
         Severity::kCritical,
         DataLoss::kNo,
         "All blocks are dirty",
         "Each block of the cache holds data that the volume has not. No block can be given up for another, "
         "so "
         "all I/O has to wait for the volume: the cache slows the volume down instead of speeding it up. "
         "Usually the volume refuses the write-backs, or the write-back is stopped.",
         {Source::kTable, Source::kDirtyBlocks},
         AllDirty},
        {"VFC-D072",
         Severity::kWarning,
         DataLoss::kNo,
         "Full, and few reads hit",
         "The cache is full, has replaced all of its blocks at least once, and less than a fifth of the "
         "reads "
         "hit: blocks are given up before anybody reads them again. That wears the SSD and helps nobody. "
         "Reads that bypass the cache do not count.",
         {Source::kTable, Source::kCounters},
         Thrashing},
    };
}

}  // namespace cli
