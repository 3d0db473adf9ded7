#include "advise/cache.h"

#include <fmt/format.h>

#include <algorithm>

#include "caches/inventory.h"
#include "caches/thrashing.h"
#include "stats/reading.h"
#include "support/device.h"
#include "support/quoted.h"

namespace cli {
namespace {

// What the kernel tells of its use, since its counters began.
struct Use {
    BlockUse blocks;
    std::uint64_t references = 0;  // blocks read and written
    std::uint64_t hits = 0;        // of them
    std::uint64_t bypassed = 0;    // of them, as parts of long streams
    std::uint64_t volumeBlocks = 0;
};

std::optional<Use> UseOf(const Reading& reading, std::optional<std::uint64_t> volumeBytes) {
    const auto count = [&](const char* name) { return NumberOf(reading.counters, name); };
    if (!count("reads") || !reading.totalBlocks || !reading.cachedBlocks || reading.blockSize == 0) {
        return std::nullopt;
    }
    const auto number = [&](const char* name) { return count(name).value_or(0); };
    Use use;
    use.references = number("reads") + number("writes");
    use.hits = std::min(number("read_hits") + number("write_hits"), use.references);
    use.bypassed =
        std::min(number("uncached_sequential_reads") + number("uncached_sequential_writes"), use.references);
    use.volumeBlocks = volumeBytes.value_or(0) / reading.blockSize;
    use.blocks = {*reading.totalBlocks, *reading.cachedBlocks,
                  number("replacement") + number("write_replacement"),
                  number("reads") - std::min(number("reads"), number("uncached_sequential_reads")),
                  number("read_hits")};
    return use;
}

struct Judgement {
    const char* verdict;
    std::string advice;
};

Judgement Judge(const Use& use, const std::string& name) {
    constexpr std::uint64_t kOften = 10;
    const std::uint64_t total = use.blocks.total;
    if (IsThrashing(use.blocks)) {
        return {"thrashes",
                fmt::format(
                    "It is full and gives blocks up before they are read again. Record its traffic and ask "
                    "\"vemocachectl advise trace\" which size would do; or let long streams pass: "
                    "\"vemocachectl knob set {} skip_seq_thresh_kb 1024\".",
                    name)};
    }
    if (use.bypassed * 2 > use.references && use.references >= total) {
        return {
            "bypassed",
            fmt::format("More than half of the accesses went past it as parts of long streams. If they come "
                        "again, they should be cached: \"vemocachectl knob set {} skip_seq_thresh_kb 0\".",
                        name)};
    }
    if (use.references < total) {
        return {"too_early",
                fmt::format("It has seen fewer accesses than it has blocks. Ask again when it has seen "
                            "some {} of them.",
                            total * kOften)};
    }
    // Were all blocks of the volume alike, as many would hit as it holds of them.
    if (use.hits * 10 < use.references ||
        (use.volumeBlocks > 0 && use.hits * use.volumeBlocks < 2 * use.blocks.cached * use.references)) {
        return {
            "does_not_help",
            "It hits little more often than by chance: the traffic has no part that is asked for again and "
            "again. \"vemocachectl advise trace\" tells of recorded traffic what a larger one would do."};
    }
    if (use.blocks.cached * 2 < total && use.references >= total * kOften) {
        return {"too_large", "It helps, but much of it was never filled: a smaller one would do as well."};
    }
    return {"earns_its_size",
            IsFull(use.blocks)
                ? "It is full and hits far more often than by chance. Whether a larger one would "
                  "do more, \"vemocachectl advise trace\" tells of recorded traffic."
                : "It hits far more often than by chance, and still has room."};
}

}  // namespace

Answer AdviseOnCache(const std::string& name) {
    Inventory inventory = TakeInventory();
    const Cache& cache = FindRunning(inventory, name);
    const Reading reading = ReadingOf(cache);
    const auto volumeBytes = DeviceSize(cache.Volume());
    const auto use = UseOf(reading, volumeBytes);
    if (!use) {
        throw Failure{fmt::format("nothing can be said of the cache {}", cache.Name()),
                      "the kernel does not tell what it counts of it",
                      fmt::format("vemocachectl stats {}", Quoted(cache.Name())), std::nullopt,
                      FailureKind::kUnknownState};
    }
    const Judgement judgement = Judge(*use, Quoted(cache.Name()));
    const std::uint64_t bytes = use->blocks.total * reading.blockSize;
    return One(
        "cache",
        Record{{{"name", "Name", cache.Name()},
                {"verdict", "Verdict", std::string(judgement.verdict)},
                {"advice", "Advice", judgement.advice, Format::kSentence},
                {"size_bytes", "Size", bytes, Format::kBytes, true},
                {"volume_bytes", "Volume", volumeBytes ? Value(*volumeBytes) : Value(), Format::kBytes},
                {"volume_share_percent", "Of the volume, it holds",
                 PercentValue(use->blocks.cached, use->volumeBlocks), Format::kPercent},
                {"cached_percent", "Filled", PercentValue(use->blocks.cached, use->blocks.total),
                 Format::kPercent},
                {"accesses", "Blocks read and written", use->references, Format::kNumber, true},
                {"hit_percent", "Hits", PercentValue(use->hits, use->references), Format::kPercent},
                {"bypassed_percent", "Passed by as streams", PercentValue(use->bypassed, use->references),
                 Format::kPercent},
                {"replaced_percent", "Replaced, of its blocks",
                 PercentValue(use->blocks.replaced, use->blocks.total), Format::kPercent}}});
}

}  // namespace cli
