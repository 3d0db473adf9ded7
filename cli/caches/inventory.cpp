#include "caches/inventory.h"

#include <fmt/format.h>
#include <glob.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>

#include "support/device.h"

namespace cli {
namespace {

constexpr const char* kDevicePattern = "/dev/mapper/cachedev*";
constexpr std::string_view kMapperFolder = "/dev/mapper/";

std::string Text(const char* text) {
    return text == nullptr ? "" : text;
}

// Asked one by one: a query for all fails as a whole when one of them cannot be described.
std::vector<Cache> RunningCaches() {
    std::vector<Cache> running;
    glob_t found{};
    if (glob(kDevicePattern, 0, nullptr, &found) == 0) {
        for (std::size_t i = 0; i < found.gl_pathc; ++i) {
            Cache cache;
            cache.device = found.gl_pathv[i];
            FLASHCACHE_STAT_SEARCH search{};
            search.type = FLASHCACHE_SEARCH_BY_CACHE_DEV_PATH;
            search.CacheDevPath = cache.device.c_str();
            FLASHCACHE_STAT* stat = nullptr;
            const Outcome outcome = Attempt([&] { return VEMOFlashCacheStatGet(&search, &stat); });
            cache.stat.reset(stat);
            cache.statError = outcome.slot;
            running.push_back(std::move(cache));
        }
    }
    globfree(&found);
    return running;
}

void ReadEntries(Inventory& inventory) {
    FLASHCACHE_CONFIG* list = nullptr;
    const Outcome outcome = Attempt([&] { return VEMOFlashCacheConfigGet(nullptr, &list); });
    inventory.entries.reset(list);
    if (outcome.result < 0) {
        inventory.configError = LibraryFailure(
            "the configuration cannot be read", outcome,
            "look at /usr/vemo/etc/flashcache.conf; a section without keys makes all of it unreadable");
    }
}

bool Runs(const Cache& running, const FLASHCACHE_CONFIG& entry) {
    if (running.stat) {
        return SameDevice(Text(running.stat->SSDDevPath), Text(entry.SSDDevPath)) &&
               SameDevice(Text(running.stat->SpacePath), Text(entry.SpacePath));
    }
    return RunningDevice(Text(entry.SSDDevPath), Text(entry.SpacePath)) == running.device;
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
    return entry != nullptr ? Text(entry->SectionName) : device.substr(kMapperFolder.size());
}

std::string Cache::Ssd() const {
    return stat ? Text(stat->SSDDevPath) : entry != nullptr ? Text(entry->SSDDevPath) : "";
}

std::string Cache::Volume() const {
    return stat ? Text(stat->SpacePath) : entry != nullptr ? Text(entry->SpacePath) : "";
}

std::string RunningDevice(const std::string& ssd, const std::string& volume) {
    const std::unique_ptr<char, decltype(&std::free)> kernelName(
        VEMOFlashCacheSysctlDevNameGet(ssd.c_str(), volume.c_str()), std::free);
    // The look-up compares prefixes: only the kernel's own folder of the pair proves that it is this one.
    if (!kernelName || access(fmt::format("/proc/flashcache/{}", kernelName.get()).c_str(), F_OK) != 0) {
        return "";
    }
    std::array<char, 64> device{};
    const int found = VEMOFlashcacheGetCachePath(ssd.c_str(), device.data(), static_cast<int>(device.size()));
    return found == 1 ? device.data() : "";
}

Inventory TakeInventory() {
    Inventory inventory;
    ReadEntries(inventory);
    std::vector<Cache> running = RunningCaches();
    for (const FLASHCACHE_CONFIG* entry = inventory.entries.get(); entry != nullptr; entry = entry->Next) {
        Cache cache;
        const auto match =
            std::find_if(running.begin(), running.end(), [&](const Cache& one) { return Runs(one, *entry); });
        if (match != running.end()) {
            cache = std::move(*match);
            running.erase(match);
        }
        cache.entry = entry;
        inventory.caches.push_back(std::move(cache));
    }
    std::move(running.begin(), running.end(), std::back_inserter(inventory.caches));
    return inventory;
}

Cache& Find(Inventory& inventory, const std::string& name) {
    std::vector<Cache*> found;
    for (auto& cache : inventory.caches) {
        if (IsNamed(cache, name)) {
            found.push_back(&cache);
        }
    }
    if (found.empty() && inventory.configError) {
        throw Failure(*inventory.configError);
    }
    if (found.empty()) {
        throw Failure{fmt::format("there is no cache {}", name),
                      "no running or configured cache has this name, device or mount path",
                      "vemocachectl list shows them"};
    }
    if (found.size() > 1) {
        throw Failure{fmt::format("{} names more than one cache", name),
                      fmt::format("it fits {} and {}", found[0]->Name(), found[1]->Name()),
                      "name the one by its section or its cache device"};
    }
    return *found.front();
}

Cache& FindRunning(Inventory& inventory, const std::string& name) {
    Cache& cache = Find(inventory, name);
    if (!cache.IsUp()) {
        throw Failure{fmt::format("the cache {} is not loaded", cache.Name()), "this needs a running cache",
                      fmt::format("vemocachectl load {}", cache.Name())};
    }
    return cache;
}

Cache& FindWithPair(Inventory& inventory, const std::string& name) {
    Cache& cache = FindRunning(inventory, name);
    if (cache.Ssd().empty() || cache.Volume().empty()) {
        throw Failure{fmt::format("the devices of {} are not known", cache.Name()),
                      "its status cannot be read, and it has no configuration entry",
                      fmt::format("vemocachectl -v status {} shows why", cache.Name()), cache.statError};
    }
    return cache;
}

}  // namespace cli
