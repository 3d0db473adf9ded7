#include <fmt/format.h>

#include "caches/inventory.h"
#include "output/answer.h"
#include "verbs/verb.h"

namespace cli {
namespace {

struct Options {
    std::string cache;
};

std::uint64_t SizeOf(const FLASHCACHE_STAT_SEARCH* search) {
    std::uint64_t bytes = 0;
    const Outcome outcome = Attempt([&] { return VEMOFlashCacheCacheSizeGet(search, &bytes); });
    if (outcome.result != 0) {
        throw LibraryFailure("the size could not be read", outcome, "vemocachectl list");
    }
    return bytes;
}

void ShowOne(const Context& context, const std::string& name) {
    Inventory inventory = TakeInventory();
    const Cache& cache = FindRunning(inventory, name);
    FLASHCACHE_STAT_SEARCH search{};
    search.type = FLASHCACHE_SEARCH_BY_CACHE_DEV_PATH;
    search.CacheDevPath = cache.device.c_str();
    const Record record{
        {{"name", "Name", cache.Name()}, {"size_bytes", "Size", SizeOf(&search), Format::kBytes}}};
    Print(One("size", record), context.json);
}

void Size(const Context& context, const Options& options) {
    if (!options.cache.empty()) {
        ShowOne(context, options.cache);
        return;
    }
    const Record record{{{"name", "Name", Value(), Format::kPlain, false, true},
                         {"size_bytes", "Size of all running caches", SizeOf(nullptr), Format::kBytes}}};
    Print(One("size", record), context.json);
}

std::vector<Argument> Declare(Options& options) {
    Argument cache = CacheArgument(options.cache);
    cache.required = false;
    return {cache};
}

}  // namespace

Verb SizeVerb() {
    return Report(MakeVerb<Options>("size", "Show how large a running cache is, or all together",
                                    "vemocachectl size cachedev_0", Declare, Size));
}

}  // namespace cli
