#include <fmt/format.h>

#include "caches/kernel_state.h"
#include "doctor/gather_parts.h"

namespace cli {
namespace {

// A file with the number that it is read for.
std::optional<Counts> ReadWith(const std::string& pair, const std::string& file, std::string_view name) {
    auto counts = ReadCounts(pair, file);
    return counts && CountIn(*counts, name) ? std::move(counts) : std::nullopt;
}

void AddCountsOfWriteBack(KernelFacts& facts, const Cache& cache, const std::string& pair,
                          const Gathering& gathering) {
    const auto progress = ReadWith(pair, "flashcache_progress", "remaining_num_of_dirty");
    const auto dirty = progress ? CountIn(*progress, "remaining_num_of_dirty") : std::nullopt;
    if (dirty && *dirty >= 0) {
        facts.dirtyBlocks = static_cast<std::uint64_t>(*dirty);
    } else {
        gathering.Miss(Source::kDirtyBlocks, cache.Name(),
                       fmt::format("/proc/flashcache/{}/flashcache_progress tells no number", pair));
    }
    const auto attribute = AttributeOf(cache);
    if (!IsUnknown({"", "", AttributeText(attribute)})) {
        facts.attribute = attribute;
    } else {
        gathering.Miss(Source::kAttribute, cache.Name(),
                       fmt::format("/proc/flashcache/{}/flashcache_attribute tells none", pair));
    }
}

}  // namespace

KernelFacts GatherKernel(const Cache& cache, const Gathering& gathering) {
    KernelFacts facts;
    facts.bytes = DeviceSize(cache.device);
    if (!cache.pair) {
        gathering.Miss(Source::kTable, cache.Name(),
                       fmt::format("\"dmsetup table {}\" tells no SSD and volume", cache.device));
        return facts;
    }
    facts.mode = cache.pair->mode;
    facts.blockSize = cache.pair->blockSize;
    facts.blocks = cache.pair->blocks;
    facts.cachedBlocks = cache.pair->cachedBlocks;
    const std::string pair = KernelName(cache.Ssd(), cache.Volume());
    facts.knobs = ReadKnobs(pair);
    facts.errors = ReadWith(pair, "flashcache_errors", "write_disk_sync_errors");
    facts.counters = ReadWith(pair, "flashcache_stats", "reads");
    const auto require = [&](const std::optional<Counts>& counts, Source source, const std::string& what) {
        if (!counts) {
            gathering.Miss(source, cache.Name(), what + " could not be read");
        }
    };
    require(facts.knobs, Source::kKnobs, fmt::format("/proc/sys/dev/flashcache_{}", pair));
    require(facts.errors, Source::kErrors, fmt::format("/proc/flashcache/{}/flashcache_errors", pair));
    require(facts.counters, Source::kCounters, fmt::format("/proc/flashcache/{}/flashcache_stats", pair));
    if (cache.MayHoldDirty()) {
        AddCountsOfWriteBack(facts, cache, pair, gathering);
    }
    return facts;
}

}  // namespace cli
