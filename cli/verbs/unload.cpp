#include <fmt/format.h>

#include "caches/describe.h"
#include "caches/entry.h"
#include "caches/flush_lock.h"
#include "caches/idle.h"
#include "caches/inventory.h"
#include "caches/kernel_state.h"
#include "caches/programs.h"
#include "caches/unload_record.h"
#include "output/answer.h"
#include "support/background_call.h"
#include "support/dry_run.h"
#include "support/lifecycle_lock.h"
#include "verbs/verb.h"

namespace cli {
namespace {

struct UnloadOptions {
    std::string cache;
    bool all = false;
};

// The device writes back on its way down, where no one could tell any more what was given up.
void RequireNoGivingUp(const Cache& cache, std::optional<std::uint64_t> left) {
    if (left != 0U && AttributeOf(cache) == FLASHCACHE_ATTRIBUTE_FORCE_REMOVE) {
        throw Failure{
            fmt::format("the cache {} is not unloaded", cache.Name()),
            "its attribute is force-remove: dirty blocks that the volume refuses on the way down "
            "would be LOST",
            fmt::format("vemocachectl attribute set {0} none; vemocachectl unload {0}", cache.Name()),
            std::nullopt, FailureKind::kRefused};
    }
}

void TakeDown(const Cache& cache) {
    const Outcome outcome = Change(
        Uninterrupted, [&] { return UnloadStep(cache.device); },
        [&] { return VEMOFlashCacheUnload(cache.device.c_str()); });
    if (outcome.result != 0) {
        const Place place = PlaceOf(cache.Ssd(), cache.Volume());
        const bool isDown = place.device.empty() && place.isKnown;
        if (isDown) {
            RecordUnload(cache);
        }
        if (isDown && cache.entry != nullptr) {
            MarkLoaded(cache.Name(), false);
        }
        throw LibraryFailure(
            fmt::format("the cache {} could not be unloaded in order; it {}", cache.Name(), PlaceText(place)),
            outcome,
            isDown
                ? fmt::format("vemocachectl list shows it; vemocachectl load {} brings it up", cache.Name())
                : fmt::format("vemocachectl doctor {}", cache.Name()));
    }
}

// How many blocks lie on the SSD alone; nothing: not known. The kernel may write some back on the way down,
// so this is the most that it can be.
std::optional<std::uint64_t> MostLeft(const Cache& cache) {
    return cache.MayHoldDirty() ? DirtyBlocks(cache.Ssd(), cache.Volume()) : std::optional<std::uint64_t>(0);
}

std::string HeadlineOfUnload(const Cache& cache, std::optional<std::uint64_t> left) {
    std::string headline = fmt::format("Unloaded {}.", cache.Name());
    if (!cache.MayHoldDirty()) {
        return headline;
    }
    const std::string stale =
        "Once the volume is written without it, the blocks on the SSD are stale, and the cache must be "
        "wiped.";
    if (left == 0U) {
        return fmt::format("{} No dirty block was left. {}", headline, stale);
    }
    const std::string number = left ? fmt::format("Up to {}", *left) : "An unknown number of";
    return fmt::format("{} {} dirty blocks are on the SSD alone: load it before you use the volume. {}",
                       headline, number, stale);
}

Record UnloadedRecord(const Cache& cache, std::optional<std::uint64_t> left) {
    Record record = Identity(cache);
    record.fields.insert(
        record.fields.end(),
        {{"dirty_blocks_left", "Dirty blocks left", left ? Value(*left) : Value()},
         {"dirty_bytes_left", "Dirty left", BytesOf(left, cache.BlockSize()), Format::kBytes}});
    return record;
}

// Returns how many blocks lie on the SSD alone then, at the most.
std::optional<std::uint64_t> UnloadCache(const Cache& cache) {
    RequireIdle(cache);
    const FlushLock noFlush(cache);
    const auto left = MostLeft(cache);
    RequireNoGivingUp(cache, left);
    TakeDown(cache);
    RecordUnload(cache);
    if (cache.entry != nullptr) {
        After(HeadlineOfUnload(cache, left) + " But ", [&] { MarkLoaded(cache.Name(), false); });
    }
    return left;
}

// A cache that stays up keeps no other from going down.
void UnloadAll(Context& context, const Inventory& inventory) {
    Answer answer{"caches", Layout::kTable, {}, "", "No cache is up."};
    for (const auto& cache : inventory.caches) {
        if (!cache.IsUp()) {
            continue;
        }
        std::string problem;
        std::optional<std::uint64_t> left = MostLeft(cache);
        try {
            left = UnloadCache(cache);
        } catch (const Failure& failure) {
            problem = failure.what + ": " + failure.why;
            context.failed = true;
            if (IsDryRun()) {
                NoteProblem(problem);
            }
        }
        Record record = UnloadedRecord(cache, left);
        record.fields.push_back({"problem", "Problem", KnownText(problem), Format::kSentence, false, true});
        answer.records.push_back(std::move(record));
    }
    Print(answer, context.json);
}

void Unload(Context& context, const UnloadOptions& options) {
    if (options.cache.empty() && !options.all) {
        throw Failure{"wrong usage", "CACHE or --all is required", "vemocachectl unload --help", std::nullopt,
                      FailureKind::kUsage};
    }
    const LifecycleLock lock("unload");
    Inventory inventory = TakeInventory();
    if (options.all) {
        UnloadAll(context, inventory);
        return;
    }
    const Cache& cache = FindRunning(inventory, options.cache);
    const auto left = UnloadCache(cache);
    Print(One("unloaded", UnloadedRecord(cache, left), HeadlineOfUnload(cache, left)), context.json);
}

std::vector<Argument> DeclareUnload(UnloadOptions& options) {
    Argument cache = CacheArgument(options.cache);
    cache.required = false;
    return {cache,
            {.name = "--all", .help = "all that are up", .target = &options.all, .excludes = {"CACHE"}}};
}

}  // namespace

Verb UnloadVerb() {
    return MakeVerb<UnloadOptions>(
        "unload", "Take a cache device down, or all; their blocks and metadata stay on the SSDs",
        "vemocachectl unload cachedev_0", DeclareUnload, Unload);
}

}  // namespace cli
