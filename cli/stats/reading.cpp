#include "stats/reading.h"

#include "caches/describe.h"
#include "caches/kernel_state.h"

namespace cli {
std::optional<std::uint64_t> NumberOf(const Counts& counts, std::string_view name) {
    const auto count = CountIn(counts, name);
    return count && *count >= 0 ? std::optional(static_cast<std::uint64_t>(*count)) : std::nullopt;
}

Reading ReadingOf(const Cache& cache) {
    Reading reading;
    reading.name = cache.Name();
    reading.state = StateText(cache);
    reading.writeMode = WriteModeOf(cache);
    reading.blockSize = cache.BlockSize();
    if (cache.IsUp() && cache.pair) {
        const std::string kernelName = KernelName(cache.pair->ssd, cache.pair->volume);
        reading.counters = ReadCounts(kernelName, "flashcache_stats").value_or(Counts());
        reading.errors = ReadCounts(kernelName, "flashcache_errors").value_or(Counts());
        reading.totalBlocks = cache.pair->blocks;
        reading.cachedBlocks = cache.stat ? std::optional(cache.stat->CachedBlocks) : std::nullopt;
    }
    reading.dirtyBlocks = DirtyBlocksOf(cache);
    // The moment of the numbers, not that of the programs that were run before for the status.
    reading.time = Reading::Clock::now();
    return reading;
}

Reading Gone(const std::string& name) {
    Reading reading;
    reading.name = name;
    reading.state = "gone";
    reading.time = Reading::Clock::now();
    return reading;
}

}  // namespace cli
