#include <fmt/format.h>
#include <fmt/ranges.h>

#include "caches/adopt.h"
#include "caches/correct.h"
#include "caches/describe_entry.h"
#include "caches/entry.h"
#include "caches/flush_lock.h"
#include "caches/fresh_pair.h"
#include "caches/inventory.h"
#include "caches/lost.h"
#include "output/answer.h"
#include "support/consent.h"
#include "support/dry_run.h"
#include "support/lifecycle_lock.h"
#include "verbs/entry_arguments.h"
#include "verbs/verb.h"

namespace cli {
namespace {

struct ConfigOptions {
    std::string entry;
    bool forgetCache = false;
};

Inventory Configured() {
    Inventory inventory = TakeInventory();
    if (inventory.configError) {
        throw Failure(*inventory.configError);
    }
    return inventory;
}

const Cache& FindEntry(Inventory& inventory, const std::string& name) {
    const Cache& cache = Find(inventory, name);
    if (cache.entry == nullptr) {
        throw Failure{fmt::format("the cache {} has no configuration entry", cache.Name()), "",
                      fmt::format("vemocachectl config adopt {}", cache.Name()), std::nullopt,
                      FailureKind::kNotFound};
    }
    return cache;
}

void ListEntries(Context& context, const ConfigOptions&) {
    const Inventory inventory = Configured();
    Answer answer{"entries", Layout::kTable, {}, "", "No cache is configured."};
    for (const auto* entry = inventory.entries.get(); entry != nullptr; entry = entry->Next) {
        answer.records.push_back(EntrySummary(*entry));
        MayGiveWay(answer.records.back(), {"flush_state", "format", "mount_path", "write_mode", "volume",
                                           "ssd", "size_bytes", "loaded"});
    }
    answer.remark = ConfigRemark(inventory);
    Print(answer, context.json);
}

void ShowEntry(Context& context, const ConfigOptions& options) {
    Inventory inventory = Configured();
    const Cache& cache = FindEntry(inventory, options.entry);
    Print(One("entry", EntryDetails(*cache.entry), ""), context.json);
}

// The blocks that lie on the SSD of the cache alone, as far as it is there and tells of this cache.
Lost HeldOnSsd(const Cache& cache) {
    if (!cache.onSsd || !cache.ForeignVolume().empty()) {
        return {cache.MayHoldDirty() ? std::nullopt : std::optional<std::uint64_t>(0), cache.BlockSize()};
    }
    return {cache.onSsd->dirtyBlocks, cache.onSsd->blockSize};
}

void TellForgotten(const Context& context, const Cache& cache, const Lost& held) {
    Record record = EntryDetails(*cache.entry);
    record.fields.insert(
        record.fields.end(),
        {{"dirty_blocks_left", "Dirty blocks left", held.blocks ? Value(*held.blocks) : Value()},
         {"dirty_bytes_left", "Dirty left", BytesOf(held.blocks, held.blockSize), Format::kBytes}});
    Print(One("removed", record, fmt::format("Removed the entry {}; its SSD was left alone.", cache.Name())),
          context.json);
}

void ForgetAgreed(const Context& context, const ConfigOptions& options, const Consent& consent) {
    const LifecycleLock lock("config remove");
    Inventory inventory = Configured();
    RequireWholeConfig(inventory);
    const Cache& cache = FindEntry(inventory, options.entry);
    if (cache.IsUp()) {
        throw Failure{fmt::format("the cache {} is running", cache.Name()),
                      "without its entry it could neither be flushed nor loaded again",
                      fmt::format("vemocachectl unload {}", cache.Name())};
    }
    RequireAllKnown(inventory, fmt::format("the cache {} is running", cache.Name()));
    const Lost held = HeldOnSsd(cache);
    consent.Require(fmt::format("forget the cache {} on {}, so that it cannot be loaded again, with {}",
                                cache.Name(), cache.Ssd(), HeldAlone(held, cache.Volume())));
    RemoveEntry(cache.Name());
    TellForgotten(context, cache, held);
}

void ForgetEntry(Context& context, const ConfigOptions& options) {
    WithConsent({"--forget-cache", options.forgetCache, !context.json},
                [&](const Consent& consent) { ForgetAgreed(context, options, consent); });
}

struct AdoptOptions {
    std::string cache;
    std::string name;
    std::string mountPath;
};

void Adopt(Context& context, const AdoptOptions& options) {
    const LifecycleLock lock("config adopt");
    Inventory inventory = Configured();
    RequireWholeConfig(inventory);
    const Cache& cache = FindWithPair(inventory, options.cache);
    if (cache.entry != nullptr) {
        throw Failure{fmt::format("the cache {} has an entry", cache.Name()), "nothing is to be adopted",
                      fmt::format("vemocachectl config show {}", cache.Name()), std::nullopt,
                      FailureKind::kRefused};
    }
    const std::string name = FreshName(inventory, options.name, cache.Ssd(), cache.Volume());
    WriteEntryOfRunning(cache, name,
                        options.mountPath.empty() ? DefaultMountPath(cache.Volume()) : options.mountPath);
    if (IsDryRun()) {
        return;
    }
    Inventory after = Configured();
    const Cache& adopted = FindEntry(after, name);
    Print(One("entry", EntryDetails(*adopted.entry), fmt::format("Configured {} as {}.", cache.device, name)),
          context.json);
}

void Refresh(Context& context, const ConfigOptions& /*options*/) {
    RequireWholeConfig(Configured());  // what running caches need may be in the copy alone
    RefreshCopy();
    Print(One("copy", Record{{{"refreshed", "Refreshed", true}}},
              "The temporary copy of the configuration is what the file holds."),
          context.json);
}

void Correct(Context& context, const ConfigOptions& options) {
    const LifecycleLock lock("config correct");
    Inventory inventory = Configured();
    RequireWholeConfig(inventory);
    const Cache& cache = FindEntry(inventory, options.entry);
    RequireKnownState(cache);
    const FlushLock noFlush(cache);  // a changed entry would cancel it
    const auto changes = CorrectEntry(cache);
    Inventory after = Configured();
    Print(One("entry", EntryDetails(*FindEntry(after, options.entry).entry),
              changes.empty()
                  ? fmt::format("The entry {} is right as it is.", cache.Name())
                  : fmt::format("Corrected the entry {}: {}.", cache.Name(), fmt::join(changes, ", "))),
          context.json);
}

std::vector<Argument> DeclareAdopt(AdoptOptions& options) {
    return {CacheArgument(options.cache), EntryNameArgument(options.name),
            MountPathArgument(options.mountPath)};
}

Argument EntryArgument(ConfigOptions& options) {
    return {.name = "ENTRY",
            .help = "the entry: its name, or the path of its SSD, volume or mount",
            .target = &options.entry,
            .required = true,
            .completion = Completion::kEntry};
}

std::vector<Argument> DeclareRemove(ConfigOptions& options) {
    return {EntryArgument(options),
            {.name = "--forget-cache",
             .help = "consent to the loss; asked for on a terminal when left out",
             .target = &options.forgetCache}};
}

}  // namespace

Verb ConfigVerb() {
    return MakeGroup(
        "config", "List, show, make or remove the configuration entries of caches",
        {Report(MakeVerb<ConfigOptions>(
             "list", "List the configured caches", "vemocachectl config list",
             [](ConfigOptions&) { return NoArguments(); }, ListEntries)),
         Report(MakeVerb<ConfigOptions>(
             "show", "Show a whole entry", "vemocachectl config show /dev/md3",
             [](ConfigOptions& options) -> std::vector<Argument> { return {EntryArgument(options)}; },
             ShowEntry)),
         MakeVerb<AdoptOptions>("adopt", "Make the entry of a running cache that has none",
                                "vemocachectl config adopt cachedev_0", DeclareAdopt, Adopt),
         MakeVerb<ConfigOptions>(
             "refresh", "Make the temporary copy anew, which flushes read", "vemocachectl config refresh",
             [](ConfigOptions&) { return NoArguments(); }, Refresh),
         MakeVerb<ConfigOptions>(
             "correct",
             "Make an entry tell the mode, size and format of the cache on its SSD, and that its devices are "
             "there",
             "vemocachectl config correct md3+volume_1",
             [](ConfigOptions& options) -> std::vector<Argument> { return {EntryArgument(options)}; },
             Correct),
         MakeVerb<ConfigOptions>("remove", "Remove an entry; its cache cannot be loaded without it",
                                 "vemocachectl config remove md3+volume_1 --forget-cache", DeclareRemove,
                                 ForgetEntry)});
}

}  // namespace cli
