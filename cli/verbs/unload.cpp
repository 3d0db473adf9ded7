#include <fmt/format.h>

#include "caches/describe.h"
#include "caches/entry.h"
#include "caches/idle.h"
#include "caches/inventory.h"
#include "caches/kernel_state.h"
#include "output/answer.h"
#include "support/background_call.h"
#include "support/lifecycle_lock.h"
#include "verbs/verb.h"

namespace cli {
namespace {

struct Options {
    std::string cache;
};

void TakeDown(const Cache& cache) {
    const Outcome outcome = Uninterrupted([&] { return VEMOFlashCacheUnload(cache.device.c_str()); });
    if (outcome.result != 0) {
        throw LibraryFailure(fmt::format("the cache {} could not be unloaded, it is still up", cache.Name()),
                             outcome, "see what lies on the device with lsblk, release it, then try again");
    }
}

std::string HeadlineOf(const Cache& cache, std::uint64_t dirty) {
    const std::string headline = fmt::format("Unloaded {}.", cache.Name());
    // The kernel may have written some of them back on the way down.
    return dirty == 0
               ? headline
               : fmt::format(
                     "{} Up to {} dirty blocks are on the SSD alone: load it before you use the volume.",
                     headline, dirty);
}

void Unload(const Context& context, const Options& options) {
    const LifecycleLock lock("unload");
    Inventory inventory = TakeInventory();
    const Cache& cache = FindRunning(inventory, options.cache);
    RequireIdle(cache);
    const auto dirty = DirtyBlocks(cache.Ssd(), cache.Volume());
    TakeDown(cache);
    if (cache.entry != nullptr) {
        MarkLoaded(cache.Name(), false);
    }
    Print(One("unloaded", Identity(cache), HeadlineOf(cache, dirty.value_or(0))), context.json);
}

}  // namespace

Verb UnloadVerb() {
    return MakeVerb<Options>(
        "unload", "Take a cache device down; its blocks and metadata stay on the SSD",
        "vemocachectl unload cachedev_0",
        [](Options& options) -> std::vector<Argument> { return {CacheArgument(options.cache)}; }, Unload);
}

}  // namespace cli
