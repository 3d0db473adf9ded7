#include <fmt/format.h>

#include "caches/inventory.h"
#include "output/answer.h"
#include "verbs/verb.h"

namespace cli {
namespace {

struct MemoryOptions {};

// What the block metadata of a running cache takes; nothing when it cannot be told.
Value LiveBytes(const Cache& cache) {
    if (!cache.IsUp()) {
        return {};
    }
    FLASHCACHE_STAT_SEARCH search{};
    search.type = FLASHCACHE_SEARCH_BY_CACHE_DEV_PATH;
    search.CacheDevPath = cache.device.c_str();
    std::uint64_t bytes = 0;
    return VEMOFlashcacheUsedMemGet(&search, &bytes) == 0 ? Value(bytes) : Value();
}

// What a configured cache takes whatever its size; nothing when it cannot be told.
Value FixedBytes(const Cache& cache) {
    if (cache.entry == nullptr) {
        return {};
    }
    FLASHCACHE_CONFIG_SEARCH search{};
    search.type = FLASHCACHE_SEARCH_BY_SECTION;
    search.SectionName = cache.entry->SectionName;
    const std::uint32_t kib = VEMOFlashCacheGetCacheMemoryComsuptionKb(&search);
    return kib == 0 ? Value() : Value(std::uint64_t{kib} * 1024);
}

// What all configured caches will need; nothing when one of them cannot be reckoned.
Value NeededBytes() {
    std::uint64_t bytes = 0;
    return VEMOFlashCacheGetTotalMemoryConsumptionByte(&bytes) == 0 ? Value(bytes) : Value();
}

void Memory(const Context& context, const MemoryOptions& /*options*/) {
    const Inventory inventory = TakeInventory();
    Answer answer{"caches", Layout::kTable, {}, "", "There are no caches."};
    for (const auto& cache : inventory.caches) {
        answer.records.push_back({{{"name", "Name", cache.Name()},
                                   {"metadata_bytes", "Blocks, now", LiveBytes(cache), Format::kBytes},
                                   {"fixed_bytes", "Fixed", FixedBytes(cache), Format::kBytes}}});
    }
    answer.total =
        Record{{{"needed_bytes", "Needed by all that are configured", NeededBytes(), Format::kBytes}}};
    Print(answer, context.json);
}

}  // namespace

Verb MemoryVerb() {
    return Report(MakeVerb<MemoryOptions>(
        "memory", "Show the kernel memory that caches take, and what the configured ones need",
        "vemocachectl memory", [](MemoryOptions&) { return NoArguments(); }, Memory));
}

}  // namespace cli
