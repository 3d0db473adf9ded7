#include <fmt/format.h>

#include <map>

#include "caches/adopt.h"
#include "caches/describe.h"
#include "caches/entry.h"
#include "caches/fresh_pair.h"
#include "caches/inventory.h"
#include "caches/loading.h"
#include "caches/programs.h"
#include "caches/ssd_content.h"
#include "output/answer.h"
#include "support/device.h"
#include "support/dry_run.h"
#include "support/lifecycle_lock.h"
#include "verbs/verb.h"

namespace cli {
namespace {

struct LoadOptions {
    std::string cache;
    std::string volume;
    bool all = false;
    bool acceptStale = false;
};

void LoadNamed(const Context& context, const Cache& cache, const Consent& consent) {
    const bool isKnown = LoadCache(cache, consent);
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
    const Consent nobodyAsked("--accept-stale", false, false);
    std::map<std::string, Failure> failures;
    for (const auto& cache : inventory.caches) {
        try {
            LoadCache(cache, nobodyAsked);
        } catch (const Failure& failure) {
            if (IsDryRun()) {
                NoteProblem(failure.what + ": " + failure.why);
            }
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
SsdContent RequireTelling(const LoadOptions& options) {
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

// The entry that the rest of the work goes by is not there in a dry run.
void NoteLoadFromSsd(const SsdContent& content, const LoadOptions& options, const std::string& name) {
    FLASHCACHE_POLICY policy{};
    policy.WriteMode = content.mode;
    policy.ReclaimPolicy = FLASHCACHE_RECLAIM_LRU;
    NoteStep(LoadStep(options.cache, options.volume, policy));
    NoteStep({"VEMOFlashCacheConfigSet", {name}, RefreshingCopy()});
}

void LoadFromSsd(const Context& context, const LoadOptions& options, const Consent& consent) {
    const Inventory inventory = TakeInventory();
    RequireWholeConfig(inventory);
    RequireAllKnown(inventory, fmt::format("the SSD {} is free", options.cache));
    const SsdContent content = RequireTelling(options);
    RequireFreshPair(inventory, options.cache, options.volume);
    const std::string name = FreshName(inventory, "", options.cache, options.volume);
    WriteEntryOfSsd(content, options.cache, options.volume, name);
    RefreshCopyOrNote();
    if (IsDryRun()) {
        NoteLoadFromSsd(content, options, name);
        return;
    }
    Inventory configured = TakeInventory();
    const Cache& cache = Find(configured, name);
    try {
        LoadNamed(context, cache, consent);
    } catch (...) {  // also for a question
        if (PlaceOf(options.cache, options.volume).device.empty()) {
            RemoveEntry(name);
        }
        throw;
    }
}

void LoadAgreed(Context& context, const LoadOptions& options, const Consent& consent) {
    const LifecycleLock lock("load");
    if (!options.volume.empty()) {
        LoadFromSsd(context, options, consent);
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
        LoadNamed(context, Find(inventory, options.cache), consent);
    }
}

void Load(Context& context, const LoadOptions& options) {
    if (options.cache.empty() && !options.all) {
        throw Failure{"wrong usage", "CACHE or --all is required", "vemocachectl load --help", std::nullopt,
                      FailureKind::kUsage};
    }
    WithConsent({"--accept-stale", options.acceptStale, !context.json},
                [&](const Consent& consent) { LoadAgreed(context, options, consent); });
}

std::vector<Argument> DeclareLoad(LoadOptions& options) {
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
    return MakeVerb<LoadOptions>(
        "load", "Bring up a configured cache, or all, as after a restart; finishes what was begun",
        "vemocachectl load --all\n  vemocachectl load /dev/md3 /dev/vg1/volume_1", DeclareLoad, Load);
}

}  // namespace cli
