#include <fmt/format.h>

#include "caches/inventory.h"
#include "output/answer.h"
#include "verbs/verb.h"

namespace cli {
namespace {

struct SizeOptions {
    std::string cache;
};

// The library has no size of a write-through cache, and none of all together while one is up; the kernel's
// table has each.
Value SizeOf(const Cache& cache) {
    const auto bytes = cache.Bytes();
    return bytes ? Value(*bytes) : Value();
}

void ShowOne(const Context& context, const std::string& name) {
    Inventory inventory = TakeInventory();
    const Cache& cache = FindRunning(inventory, name);
    const Record record{
        {{"name", "Name", cache.Name()}, {"size_bytes", "Size", SizeOf(cache), Format::kBytes}}};
    Print(One("size", record), context.json);
}

void ShowAll(const Context& context) {
    const Inventory inventory = TakeInventory();
    std::uint64_t sum = 0;
    std::string unknown;
    for (const auto& cache : inventory.caches) {
        const auto bytes = cache.IsUp() ? cache.Bytes() : std::optional<std::uint64_t>(0);
        sum += bytes.value_or(0);
        if (!bytes) {
            unknown += (unknown.empty() ? "" : ", ") + cache.Name();
        }
    }
    const Record record{
        {{"name", "Name", Value(), Format::kPlain, false, true},
         {"size_bytes", "Size of all running caches", sum, Format::kBytes},
         {"is_complete", "Complete", unknown.empty()},
         {"unknown", "Left out, of unknown size", KnownText(unknown), Format::kPlain, false, true}}};
    Print(One("size", record), context.json);
}

void Size(const Context& context, const SizeOptions& options) {
    if (options.cache.empty()) {
        ShowAll(context);
    } else {
        ShowOne(context, options.cache);
    }
}

std::vector<Argument> DeclareSize(SizeOptions& options) {
    Argument cache = CacheArgument(options.cache);
    cache.required = false;
    return {cache};
}

}  // namespace

Verb SizeVerb() {
    return Report(MakeVerb<SizeOptions>("size", "Show how large a running cache is, or all together",
                                        "vemocachectl size cachedev_0", DeclareSize, Size));
}

}  // namespace cli
