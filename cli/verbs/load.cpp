#include <fmt/format.h>

#include <map>

#include "caches/adopt.h"
#include "caches/describe.h"
#include "caches/entry.h"
#include "caches/fresh_pair.h"
#include "caches/inventory.h"
#include "caches/ssd_content.h"
#include "caches/tuning.h"
#include "caches/unload_record.h"
#include "output/answer.h"
#include "support/background_call.h"
#include "support/consent.h"
#include "support/device.h"
#include "support/lifecycle_lock.h"
#include "verbs/verb.h"

namespace cli {
namespace {

struct Consent {
    bool given = false;
    bool mayAsk = false;
};

struct Options {
    std::string cache;
    std::string volume;
    bool all = false;
    bool acceptStale = false;
};

void CheckBefore(const Cache& cache) {
    if (!IsBlockDevice(cache.Ssd())) {
        throw Failure{
            fmt::format("the SSD {} of the cache {} is not there", cache.Ssd(), cache.Name()),
            "no such device exists",
            fmt::format("bring the SSD back; if it is lost with all that it holds: vemocachectl config "
                        "remove {} --forget-cache",
                        cache.Name()),
            std::nullopt, FailureKind::kNotFound};
    }
    RequireBlockDevice(cache.Volume(), "volume");
    RequireUnused(cache.Ssd(), "SSD");
    RequireUnused(cache.Volume(), "volume");
    if (!cache.IsOnItsSsd()) {
        throw Failure{
            fmt::format("the cache {} cannot be loaded", cache.Name()),
            fmt::format("the SSD {} holds a cache of the volume {}, not of {}", cache.Ssd(),
                        cache.onSsd->volume, cache.Volume()),
            fmt::format("vemocachectl probe {} tells more; see that the right SSD is in place", cache.Ssd()),
            std::nullopt, FailureKind::kRefused};
    }
}

// What was written to the volume without its cache is newer than the blocks on the SSD, which would hide it.
void RequireFreshBlocks(const Cache& cache, const Consent& consent) {
    const SinceUnload since = LookSinceUnload(cache);
    if (since.volume == SinceUnload::Volume::kWritten) {
        RequireConsent(
            {fmt::format("bring up the cache {} with stale blocks: its volume {} was written without "
                         "it, after it was unloaded at {}; reads would give old data, and dirty "
                         "blocks would overwrite new data. To give the blocks up instead: "
                         "vemocachectl wipe {} --discard-metadata; vemocachectl config remove {} "
                         "--forget-cache",
                         cache.Name(), cache.Volume(), since.when, cache.Ssd(), cache.Name()),
             "--accept-stale"},
            consent.given, consent.mayAsk);
    }
}

Failure WhyNotLoaded(const Cache& cache, const Outcome& outcome) {
    const std::string device = PlaceOf(cache.Ssd(), cache.Volume()).device;
    if (!device.empty()) {
        return LibraryFailure(
            fmt::format("the cache {} is up as {}, but not with its tuning", cache.Name(), device), outcome,
            fmt::format(
                "vemocachectl knob get {} shows the values in force; vemocachectl load {} tries again",
                device, cache.Name()));
    }
    if (VEMOFlashCacheCheckMetadataExist(cache.Ssd().c_str()) == 0) {
        return {
            fmt::format("the cache {} could not be loaded", cache.Name()),
            fmt::format("the SSD {} holds no cache metadata", cache.Ssd()),
            fmt::format("see that the right SSD is in place; if the cache was wiped, \"vemocachectl config "
                        "remove {} --forget-cache\" forgets it",
                        cache.Name())};
    }
    return LibraryFailure(fmt::format("the cache {} could not be loaded", cache.Name()), outcome,
                          fmt::format("see that {} is the SSD of this cache and look at dmesg", cache.Ssd()));
}

void RecordLoaded(const Cache& cache, const std::string& device) {
    After(fmt::format("the cache {} is up as {}, but ", cache.Name(), device),
          [&] { MarkLoaded(cache.Name(), true); });
}

// A loading or creation that was killed half-way left the rest of its work.
void FinishLoaded(const Cache& cache) {
    if (cache.entry == nullptr) {
        return;
    }
    if (!TuningDifferences(cache).empty()) {
        ApplyTuning(cache);
    }
    if (cache.entry->loaded == 0 || cache.entry->CreateCritSection != 0) {
        RecordLoaded(cache, cache.device);
    }
}

void LoadOne(const Cache& cache, const Consent& consent) {
    if (cache.IsUp()) {
        FinishLoaded(cache);
        return;
    }
    RequireKnownState(cache);
    CheckBefore(cache);
    RequireFreshBlocks(cache, consent);
    ForgetUnload(cache);
    const std::string ssd = cache.Ssd();
    const std::string volume = cache.Volume();
    const Outcome outcome =
        Uninterrupted([&] { return VEMOFlashCacheLoad(ssd.c_str(), volume.c_str(), nullptr, 0); });
    if (outcome.result != 0) {
        throw WhyNotLoaded(cache, outcome);
    }
    RecordLoaded(cache, PlaceOf(ssd, volume).device);
}

void LoadNamed(const Context& context, const Cache& cache, bool acceptStale) {
    const bool isKnown = cache.IsUp() || LookSinceUnload(cache).volume != SinceUnload::Volume::kUnknown;
    LoadOne(cache, {acceptStale, !context.json});
    if (!isKnown && cache.MayHoldDirty()) {
        Note(fmt::format("whether {} was written without its cache is not known: no unloading was recorded",
                         cache.Volume()));
    }
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
            LoadOne(cache, {});
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

// The cache of an SSD that the configuration does not know, which tells itself what it is.
SsdContent RequireTelling(const Options& options) {
    RequireBlockDevice(options.cache, "SSD");
    RequireBlockDevice(options.volume, "volume");
    auto content = ReadSsdContent(options.cache);
    if (!content) {
        throw Failure{fmt::format("the SSD {} does not tell what cache it holds", options.cache),
                      "it holds none, or one of a layout that is not known",
                      fmt::format("vemocachectl probe {}", options.cache), std::nullopt,
                      FailureKind::kNotFound};
    }
    if (!SameDevice(content->volume, options.volume)) {
        throw Failure{fmt::format("the cache on {} is not one of {}", options.cache, options.volume),
                      fmt::format("it is in front of the volume {}", content->volume),
                      fmt::format("vemocachectl load {} {}", options.cache, content->volume), std::nullopt,
                      FailureKind::kRefused};
    }
    return std::move(*content);
}

// The copy is for flushes alone: without room for it, caches must come up all the same.
void RefreshCopyOrNote() {
    try {
        RefreshCopy();
    } catch (const Failure& failure) {
        Note(fmt::format("{}: no cache can be flushed until then; {}", failure.what, failure.next));
    }
}

void LoadFromSsd(const Context& context, const Options& options) {
    const Inventory inventory = TakeInventory();
    RequireWholeConfig(inventory);
    RequireAllKnown(inventory, fmt::format("the SSD {} is free", options.cache));
    const SsdContent content = RequireTelling(options);
    RequireFreshPair(inventory, options.cache, options.volume);
    const std::string name = FreshName(inventory, "", options.cache, options.volume);
    WriteEntryOfSsd(content, options.cache, options.volume, name);
    RefreshCopyOrNote();
    Inventory configured = TakeInventory();
    const Cache& cache = Find(configured, name);
    try {
        LoadNamed(context, cache, options.acceptStale);
    } catch (const Failure&) {
        if (PlaceOf(options.cache, options.volume).device.empty()) {
            RemoveEntry(name);
        }
        throw;
    }
}

void Load(Context& context, const Options& options) {
    if (options.cache.empty() && !options.all) {
        throw Failure{"wrong usage", "CACHE or --all is required", "vemocachectl load --help", std::nullopt,
                      FailureKind::kUsage};
    }
    const LifecycleLock lock("load");
    if (!options.volume.empty()) {
        LoadFromSsd(context, options);
        return;
    }
    Inventory inventory = TakeInventory();
    if (inventory.configError) {
        throw Failure(*inventory.configError);
    }
    if (inventory.entries) {
        RefreshCopyOrNote();
    }
    if (options.all) {
        LoadAll(context, inventory);
    } else {
        LoadNamed(context, Find(inventory, options.cache), options.acceptStale);
    }
}

std::vector<Argument> Declare(Options& options) {
    Argument cache = CacheArgument(options.cache);
    cache.required = false;
    return {
        cache,
        {.name = "VOLUME",
         .help = "with an SSD as CACHE: bring up the cache that the SSD tells of, and configure it anew",
         .target = &options.volume,
         .needs = {"CACHE"},
         .completion = Completion::kDevice},
        {.name = "--all", .help = "all configured caches", .target = &options.all, .excludes = {"CACHE"}},
        {.name = "--accept-stale",
         .help = "consent to blocks that are older than the volume; asked for on a terminal when left out",
         .target = &options.acceptStale,
         .excludes = {"--all"}}};
}

}  // namespace

Verb LoadVerb() {
    return MakeVerb<Options>(
        "load", "Bring up a configured cache, or all, as after a restart; finishes what was begun",
        "vemocachectl load --all\n  vemocachectl load /dev/md3 /dev/vg1/volume_1", Declare, Load);
}

}  // namespace cli
