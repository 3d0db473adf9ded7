#include "caches/inventory.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>

#include "caches/config_damage.h"
#include "support/device.h"

namespace cli {
namespace {

constexpr std::string_view kMapperFolder = "/dev/mapper/";

std::string TextOrEmpty(const char* text) {
    return text == nullptr ? "" : text;
}

void ReadEntries(Inventory& inventory) {
    FLASHCACHE_CONFIG* list = nullptr;
    const Outcome outcome = Attempt([&] { return VEMOFlashCacheConfigGet(nullptr, &list); });
    inventory.entries.reset(list);
    if (outcome.result < 0) {
        inventory.configError = LibraryFailure(
            "the configuration cannot be read", outcome,
            fmt::format("look at {}; a section without keys makes all of it unreadable", kConfigPath));
        inventory.configError->kind = FailureKind::kConfiguration;
    }
}

// The library passes over what it does not understand.
void LookForDamage(Inventory& inventory) {
    std::ifstream file(kConfigPath);
    if (const auto damage = FindDamage(file)) {
        inventory.configDamage = Failure{
            fmt::format("the configuration is damaged at line {} of {}", damage->line, kConfigPath),
            damage->why + "; entries may be missing", "mend the line, or restore the file from a backup",
            std::nullopt, FailureKind::kConfiguration};
    }
}

// The one that runs what the entry has, if any does. Devices under other names are looked for last: that asks
// the kernel for each.
auto FindPair(std::vector<RunningCache>& running, const FLASHCACHE_CONFIG& entry) {
    const std::string ssd = TextOrEmpty(entry.SSDDevPath);
    const std::string volume = TextOrEmpty(entry.SpacePath);
    const auto named = std::find_if(running.begin(), running.end(), [&](const RunningCache& one) {
        return one.pair && one.pair->ssd == ssd && one.pair->volume == volume;
    });
    return named != running.end()
               ? named
               : std::find_if(running.begin(), running.end(), [&](const RunningCache& one) {
                     return one.pair && SameDevice(one.pair->ssd, ssd) &&
                            SameDevice(one.pair->volume, volume);
                 });
}

// Whether the kernel shows a folder of the pair's short names.
bool IsKnownToKernel(const FLASHCACHE_CONFIG& entry) {
    const std::string name = KernelName(TextOrEmpty(entry.SSDDevPath), TextOrEmpty(entry.SpacePath));
    return !name.empty() && access(fmt::format("/proc/flashcache/{}", name).c_str(), F_OK) == 0;
}

Cache TakeUp(RunningCache& running) {
    Cache cache;
    cache.device = std::move(running.device);
    cache.stat = std::move(running.stat);
    cache.statError = running.statError;
    cache.pair = std::move(running.pair);
    return cache;
}

bool IsNamed(const Cache& cache, const std::string& name) {
    const auto is = [&](const char* text) { return text != nullptr && name == text; };
    if (cache.entry != nullptr &&
        (is(cache.entry->SectionName) || is(cache.entry->SSDUUID) || is(cache.entry->ReferencePath))) {
        return true;
    }
    return (cache.IsUp() && (name == cache.device || std::string(kMapperFolder) + name == cache.device)) ||
           (name.starts_with("/dev/") && (SameDevice(name, cache.Ssd()) || SameDevice(name, cache.Volume())));
}

}  // namespace

std::string Cache::Name() const {
    return entry != nullptr ? TextOrEmpty(entry->SectionName) : device.substr(kMapperFolder.size());
}

std::string Cache::Ssd() const {
    return pair ? pair->ssd : entry != nullptr ? TextOrEmpty(entry->SSDDevPath) : "";
}

std::string Cache::Volume() const {
    return pair ? pair->volume : entry != nullptr ? TextOrEmpty(entry->SpacePath) : "";
}

std::optional<std::int32_t> Cache::Mode() const {
    if (pair && pair->mode) {
        return pair->mode;
    }
    return entry == nullptr ? std::nullopt : std::optional(entry->Policy.WriteMode);
}

bool Cache::MayHoldDirty() const {
    const auto mode = Mode();
    return mode != FLASHCACHE_WRITE_THRU && mode != FLASHCACHE_WRITE_AROUND;
}

std::uint64_t Cache::BlockSize() const {
    return pair ? pair->blockSize : onSsd ? onSsd->blockSize : 0;
}

std::optional<std::uint64_t> Cache::Bytes() const {
    if (pair && pair->blocks && pair->blockSize != 0) {
        return *pair->blocks * pair->blockSize;
    }
    return entry == nullptr ? std::nullopt : std::optional(entry->CacheSizeByte);
}

std::string Cache::ForeignVolume() const {
    return onSsd && !SameDevice(onSsd->volume, Volume()) ? onSsd->volume : "";
}

Inventory TakeInventory(const InventoryOptions& options) {
    Inventory inventory;
    ReadEntries(inventory);
    LookForDamage(inventory);
    std::vector<RunningCache> running = RunningCaches(options.withStatus);
    const bool allKnown =
        std::all_of(running.begin(), running.end(), [](const auto& one) { return one.pair.has_value(); });
    for (const FLASHCACHE_CONFIG* entry = inventory.entries.get(); entry != nullptr; entry = entry->Next) {
        Cache cache;
        const auto match = FindPair(running, *entry);
        if (match != running.end()) {
            cache = TakeUp(*match);
            running.erase(match);
        } else {
            cache.mayBeUp = !allKnown && IsKnownToKernel(*entry);
            cache.onSsd = cache.mayBeUp ? std::nullopt
                                        : ReadSsdContent(TextOrEmpty(entry->SSDDevPath), options.mostBlocks);
        }
        cache.entry = entry;
        inventory.caches.push_back(std::move(cache));
    }
    for (auto& one : running) {
        inventory.caches.push_back(TakeUp(one));
        inventory.caches.back().entryIsUnknown = inventory.ConfigProblem() != nullptr;
    }
    return inventory;
}

const Failure* Inventory::ConfigProblem() const {
    return configDamage  ? &*configDamage
           : configError ? &*configError
                         : nullptr;  // the one with a line first
}

void RequireWholeConfig(const Inventory& inventory) {
    if (const Failure* problem = inventory.ConfigProblem()) {
        throw Failure(*problem);
    }
}

std::string ConfigRemark(const Inventory& inventory) {
    const Failure* problem = inventory.ConfigProblem();
    return problem == nullptr ? "" : fmt::format("{}: {}; {}", problem->what, problem->why, problem->next);
}

void RequireAllKnown(const Inventory& inventory, const std::string& what) {
    for (const auto& cache : inventory.caches) {
        if (cache.IsUp() && !cache.pair) {
            throw Failure{
                fmt::format("not known whether {}", what),
                fmt::format("the table of {} cannot be read: it may be this very cache", cache.device),
                fmt::format("dmsetup table {}", cache.device), cache.statError, FailureKind::kUnknownState};
        }
    }
}

void RequireKnownState(const Cache& cache) {
    if (cache.mayBeUp) {
        throw Failure{fmt::format("whether the cache {} is loaded is not known", cache.Name()),
                      "the table of a cache device cannot be read, and it may be this cache's",
                      "dmsetup table", std::nullopt, FailureKind::kUnknownState};
    }
}

Cache& Find(Inventory& inventory, const std::string& name) {
    std::vector<Cache*> found;
    for (auto& cache : inventory.caches) {
        if (IsNamed(cache, name)) {
            found.push_back(&cache);
        }
    }
    if (found.empty()) {
        RequireWholeConfig(inventory);
    }
    if (found.empty()) {
        const std::string stranger =
            WhyNoDevice(name.starts_with("cachedev") ? std::string(kMapperFolder) + name : name);
        const bool isAmongThem = stranger.starts_with(kMapperFolder);
        throw Failure{
            fmt::format("there is no cache {}", name),
            isAmongThem ? stranger : "no running or configured cache has this name, device or mount path",
            "vemocachectl list", std::nullopt, FailureKind::kNotFound};
    }
    if (found.size() > 1) {
        throw Failure{fmt::format("{} names more than one cache", name),
                      fmt::format("it fits {} and {}", found[0]->Name(), found[1]->Name()),
                      "name the one by its section or its cache device", std::nullopt, FailureKind::kUsage};
    }
    return *found.front();
}

Cache& FindRunning(Inventory& inventory, const std::string& name) {
    Cache& cache = Find(inventory, name);
    RequireKnownState(cache);
    if (!cache.IsUp()) {
        throw Failure{fmt::format("the cache {} is not loaded", cache.Name()), "this needs a running cache",
                      fmt::format("vemocachectl load {}", cache.Name()), std::nullopt, FailureKind::kRefused};
    }
    return cache;
}

Cache& FindWithPair(Inventory& inventory, const std::string& name) {
    Cache& cache = FindRunning(inventory, name);
    if (cache.Ssd().empty() || cache.Volume().empty()) {
        throw Failure{fmt::format("the devices of {} are not known", cache.Name()),
                      "its status cannot be read, and it has no configuration entry",
                      fmt::format("vemocachectl -v status {}", cache.Name()), cache.statError,
                      FailureKind::kUnknownState};
    }
    return cache;
}

}  // namespace cli
