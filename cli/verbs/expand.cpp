#include <fmt/format.h>

#include <algorithm>

#include "caches/entry.h"
#include "caches/inventory.h"
#include "caches/programs.h"
#include "output/answer.h"
#include "support/background_call.h"
#include "support/device.h"
#include "support/dry_run.h"
#include "support/lifecycle_lock.h"
#include "verbs/verb.h"

namespace cli {
namespace {

struct ExpandOptions {
    std::string cache;
};

void RequireExpandable(const Cache& cache) {
    const std::string what = fmt::format("the cache {} cannot be expanded", cache.Name());
    if (cache.entry == nullptr) {
        throw Failure{what, "it has no configuration entry, which tells its mode and format", ""};
    }
    if (cache.entry->Policy.WriteMode == FLASHCACHE_WRITE_BACK_CRASH) {
        throw Failure{
            what, "a cache of mode back_crash does not follow its volume",
            fmt::format("vemocachectl delete {}; vemocachectl create {} {} --mode back_crash --size {}",
                        cache.Name(), cache.Ssd(), cache.Volume(), cache.entry->CacheSizeByte)};
    }
}

// The library looks the device up by the beginning of the volume's path, and would take volume_10's for
// volume_1's.
void RequireFound(const Inventory& inventory, const Cache& cache) {
    const std::string found = LibraryFinds(cache.entry->SpacePath);
    if (found == cache.device) {
        return;
    }
    const auto other = std::find_if(inventory.caches.begin(), inventory.caches.end(),
                                    [&](const Cache& one) { return one.device == found; });
    const std::string name = other == inventory.caches.end() ? found : other->Name();
    throw Failure{fmt::format("the cache {} cannot be expanded while {} runs", cache.Name(), name),
                  fmt::format("the path {} begins that cache's path too, and expansion would take {} for it",
                              cache.entry->SpacePath, found),
                  fmt::format("vemocachectl unload {0}; vemocachectl expand {1}; vemocachectl load {0}", name,
                              cache.Name()),
                  std::nullopt, FailureKind::kRefused};
}

// The device beneath a cache must never be smaller than it: what lies behind its end would be lost.
void RequireGrown(const Cache& cache) {
    const auto size = DeviceSize(cache.device);
    const auto volume = DeviceSize(cache.Volume());
    if (!size || !volume) {
        throw Failure{fmt::format("the cache {} cannot be expanded", cache.Name()),
                      fmt::format("the size of {} cannot be read", size ? cache.Volume() : cache.device), "",
                      std::nullopt, FailureKind::kUnknownState};
    }
    if (*volume < *size) {
        throw Failure{fmt::format("the volume {} has shrunk", cache.Volume()),
                      fmt::format("it has {} and the cache device {}; expansion only grows",
                                  HumanSize(*volume), HumanSize(*size)),
                      "bring the volume back to its former size", std::nullopt, FailureKind::kRefused};
    }
}

void Expand(Context& context, const ExpandOptions& options) {
    const LifecycleLock lock("expand");
    Inventory inventory = TakeInventory();
    const Cache& cache = FindRunning(inventory, options.cache);
    RequireExpandable(cache);
    RequireGrown(cache);
    RequireFound(inventory, cache);
    After(fmt::format("the cache {} is not expanded: ", cache.Name()), RefreshCopy);
    const auto before = DeviceSize(cache.device);
    // The library finds the entry by the very text that it holds.
    const Outcome outcome = Change(
        Uninterrupted,
        [&] {
            const bool grows = before != DeviceSize(cache.entry->SpacePath);
            return Step{"VEMOFlashCacheExpand",
                        {cache.entry->SpacePath},
                        grows ? ExpandingCache(*cache.entry, cache.device) : Programs()};
        },
        [&] { return VEMOFlashCacheExpand(cache.entry->SpacePath); });
    const auto after = DeviceSize(cache.device);
    if (outcome.result != 0) {
        throw LibraryFailure(fmt::format("the cache {} could not be expanded; its device {}", cache.Name(),
                                         after ? "has " + HumanSize(*after) : "cannot be read"),
                             outcome, "mend the cause, then repeat the command");
    }
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
    return MakeVerb<ExpandOptions>(
        "expand", "Bring a cache device to the size of its volume, after the volume has grown",
        "vemocachectl expand cachedev_0",
        [](ExpandOptions& options) -> std::vector<Argument> { return {CacheArgument(options.cache)}; },
        Expand);
}

}  // namespace cli
