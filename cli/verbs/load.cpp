#include <fmt/format.h>

#include <map>

#include "caches/describe.h"
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
    bool all = false;
};

void CheckBefore(const Cache& cache) {
    RequireBlockDevice(cache.Ssd(), "SSD");
    RequireBlockDevice(cache.Volume(), "volume");
    RequireUnused(cache.Ssd(), "SSD");
    RequireUnused(cache.Volume(), "volume");
}

Failure WhyNotLoaded(const Cache& cache, const Outcome& outcome) {
    const std::string device = PlaceOf(cache.Ssd(), cache.Volume()).device;
    if (!device.empty()) {
        return LibraryFailure(
            fmt::format("the cache {} is up as {}, but not with its tuning", cache.Name(), device), outcome,
            "vemocachectl knob get shows the values in force, knob set changes them");
    }
    if (VEMOFlashCacheCheckMetadataExist(cache.Ssd().c_str()) == 0) {
        return {fmt::format("the cache {} could not be loaded", cache.Name()),
                fmt::format("the SSD {} holds no cache metadata", cache.Ssd()),
                "see that the right SSD is in place; if the cache was wiped, vemocachectl config remove "
                "forgets it"};
    }
    return LibraryFailure(fmt::format("the cache {} could not be loaded", cache.Name()), outcome,
                          fmt::format("see that {} is the SSD of this cache and look at dmesg", cache.Ssd()));
}

void LoadOne(const Cache& cache) {
    if (cache.IsUp()) {
        return;
    }
    RequireKnownState(cache);
    CheckBefore(cache);
    const std::string ssd = cache.Ssd();
    const std::string volume = cache.Volume();
    const Outcome outcome =
        Uninterrupted([&] { return VEMOFlashCacheLoad(ssd.c_str(), volume.c_str(), nullptr, 0); });
    if (!PlaceOf(ssd, volume).device.empty()) {
        MarkLoaded(cache.Name(), true);
    }
    if (outcome.result != 0) {
        throw WhyNotLoaded(cache, outcome);
    }
}

void LoadNamed(const Context& context, const Cache& cache) {
    LoadOne(cache);
    Inventory after = TakeInventory();
    const Cache& loaded = Find(after, cache.Name());
    const char* how = cache.IsUp() ? "was up already" : "is up";
    Print(
        One("cache", Summary(loaded), fmt::format("The cache {} {}: {}", loaded.Name(), how, loaded.device)),
        context.json);
}

// A cache that fails costs its own row and keeps no other from coming up.
void LoadAll(Context& context, const Inventory& inventory) {
    std::map<std::string, Failure> failures;
    for (const auto& cache : inventory.caches) {
        try {
            LoadOne(cache);
        } catch (const Failure& failure) {
            failures.emplace(cache.Name(), failure);
        }
    }
    Answer answer{"caches", Layout::kTable, {}, "", "No cache is configured."};
    const Inventory after = TakeInventory();
    for (const auto& cache : after.caches) {
        answer.records.push_back(Summary(cache));
        if (const auto failure = failures.find(cache.Name()); failure != failures.end()) {
            SetProblem(answer.records.back(), failure->second.what + ": " + failure->second.why);
        }
    }
    answer.remark = ConfigRemark(after);
    Print(answer, context.json);
    context.failed = !failures.empty();
}

void Load(Context& context, const Options& options) {
    if (options.cache.empty() && !options.all) {
        throw Failure{"wrong usage", "CACHE or --all is required", "vemocachectl load --help", std::nullopt,
                      FailureKind::kUsage};
    }
    const LifecycleLock lock("load");
    Inventory inventory = TakeInventory();
    if (inventory.configError) {
        throw Failure(*inventory.configError);
    }
    if (inventory.entries) {
        RefreshCopy();
    }
    if (options.all) {
        LoadAll(context, inventory);
    } else {
        LoadNamed(context, Find(inventory, options.cache));
    }
}

std::vector<Argument> Declare(Options& options) {
    Argument cache = CacheArgument(options.cache);
    cache.required = false;
    return {
        cache,
        {.name = "--all", .help = "all configured caches", .target = &options.all, .excludes = {"CACHE"}}};
}

}  // namespace

Verb LoadVerb() {
    return MakeVerb<Options>("load", "Bring up a configured cache, or all, as after a restart",
                             "vemocachectl load --all", Declare, Load);
}

}  // namespace cli
