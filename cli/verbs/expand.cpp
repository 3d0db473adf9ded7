#include <fmt/format.h>

#include "caches/entry.h"
#include "caches/inventory.h"
#include "output/answer.h"
#include "support/background_call.h"
#include "support/device.h"
#include "support/lifecycle_lock.h"
#include "verbs/verb.h"

namespace cli {
namespace {

struct Options {
    std::string cache;
};

void RequireExpandable(const Cache& cache) {
    const std::string what = fmt::format("the cache {} cannot be expanded", cache.Name());
    if (cache.entry == nullptr) {
        throw Failure{what, "it has no configuration entry, which tells its mode and format", ""};
    }
    if (cache.entry->Policy.WriteMode == FLASHCACHE_WRITE_BACK_CRASH) {
        throw Failure{what, "a cache of mode back_crash does not follow its volume",
                      fmt::format("vemocachectl delete {}, then create it anew", cache.Name())};
    }
}

void Expand(Context& context, const Options& options) {
    const LifecycleLock lock;
    Inventory inventory = TakeInventory();
    const Cache& cache = FindRunning(inventory, options.cache);
    RequireExpandable(cache);
    RefreshCopy();
    const auto before = DeviceSize(cache.device);
    // The library finds the entry by the very text that it holds.
    const Outcome outcome = Uninterrupted([&] { return VEMOFlashCacheExpand(cache.entry->SpacePath); });
    if (outcome.result != 0) {
        throw LibraryFailure(fmt::format("the cache {} could not be expanded", cache.Name()), outcome,
                             "the cache runs on at its former size; look at the log for what the tool said");
    }
    const auto after = DeviceSize(cache.device);
    const auto size = [](const auto& bytes) { return bytes ? Value(*bytes) : Value(); };
    const Record record{{{"name", "Name", cache.Name()},
                         {"device", "Device", cache.device},
                         {"former_device_size_bytes", "Size before", size(before), Format::kBytes},
                         {"device_size_bytes", "Size now", size(after), Format::kBytes}}};
    Print(One("expanded", record,
              before == after ? fmt::format("{} has the size of its volume already.", cache.Name())
                              : fmt::format("Expanded {} to the size of its volume.", cache.Name())),
          context.json);
}

}  // namespace

Verb ExpandVerb() {
    return MakeVerb<Options>(
        "expand", "Bring a cache device to the size of its volume, after the volume has grown",
        "vemocachectl expand cachedev_0",
        [](Options& options) -> std::vector<Argument> { return {CacheArgument(options.cache)}; }, Expand);
}

}  // namespace cli
