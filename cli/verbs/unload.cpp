#include <fmt/format.h>
#include <fmt/ranges.h>

#include "caches/entry.h"
#include "caches/inventory.h"
#include "output/answer.h"
#include "support/device.h"
#include "verbs/verb.h"

namespace cli {
namespace {

struct Options {
    std::string cache;
};

void RequireIdle(const Cache& cache) {
    const auto mounts = MountPoints(cache.device);
    if (!mounts.empty()) {
        throw Failure{fmt::format("the cache {} is in use", cache.Name()),
                      fmt::format("{} is mounted on {}", cache.device, fmt::join(mounts, ", ")),
                      fmt::format("umount {}, then try again", mounts.front())};
    }
    const auto holders = Holders(cache.device);
    if (!holders.empty()) {
        throw Failure{fmt::format("the cache {} is in use", cache.Name()),
                      fmt::format("{} is held open by {}", cache.device, fmt::join(holders, ", ")),
                      "end these programs, then try again"};
    }
}

void TakeDown(const Cache& cache) {
    const Outcome outcome = Attempt([&] { return VEMOFlashCacheUnload(cache.device.c_str()); });
    if (outcome.result != 0) {
        throw LibraryFailure(fmt::format("the cache {} could not be unloaded, it is still up", cache.Name()),
                             outcome, "see what lies on the device with lsblk, release it, then try again");
    }
}

void Unload(const Context& context, const Options& options) {
    Inventory inventory = TakeInventory();
    const Cache& cache = FindRunning(inventory, options.cache);
    RequireIdle(cache);
    TakeDown(cache);
    if (cache.entry != nullptr) {
        MarkLoaded(cache.Name(), false);
    }
    Print(Answer{"unloaded",
                 Layout::kRecord,
                 {{"",
                   {{"name", "Name", cache.Name()},
                    {"device", "Device", cache.device},
                    {"ssd", "SSD", KnownText(cache.Ssd())},
                    {"volume", "Volume", KnownText(cache.Volume())}}}},
                 fmt::format(
                     "Unloaded {}. Its blocks stay on the SSD: use the volume through the loaded cache only.",
                     cache.Name()),
                 ""},
          context.json);
}

}  // namespace

void AddUnload(CLI::App& app, Context& context) {
    AddVerb<Options>(
        app, context, "unload", "Take a cache device down; its blocks and metadata stay on the SSD",
        "vemocachectl unload cachedev_0",
        [](CLI::App& verb, Options& options) {
            verb.add_option("CACHE", options.cache, kCacheHelp)->required();
        },
        Unload);
}

}  // namespace cli
