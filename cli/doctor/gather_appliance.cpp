#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <fstream>
#include <iterator>
#include <sstream>
#include <thread>
#include <utility>

#include "base/ours.h"
#include "caches/config_damage.h"
#include "caches/entry.h"
#include "doctor/gather_parts.h"
#include "support/lock_holder.h"

namespace cli {
namespace {

constexpr const char* kConfigCopyPath = "/tmp/flashcache.conf";
constexpr const char* kLifecycleLockPath = "/run/lock/vemocachectl.lock";
constexpr std::array kOtherLockPaths = {"/run/lock/ssdcache-apm-flush.lock",
                                        "/var/lock/cache_config_serial_list.lock"};

enum class Lies { kNothing, kOurs, kForeign };

Lies WhatLiesAt(const std::string& path) {
    struct stat status{};
    if (lstat(path.c_str(), &status) != 0) {
        return Lies::kNothing;
    }
    return base::IsOurs(status) ? Lies::kOurs : Lies::kForeign;
}

std::string TextAt(const std::string& path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

// Under the lock of those who write both.
bool DifferUnderLock() {
    int lock = -1;
    const bool isLocked = VEMOFlashCacheLock(kConfigLock, 0, &lock) == 1;
    const bool differ = TextAt(kConfigPath) != TextAt(kConfigCopyPath);
    if (isLocked) {
        VEMOFlashCacheUnlock(lock);
    }
    return differ;
}

// A change of the caches holds this lock for long; its text tells whose it is.
void AddSignature(LockFacts& facts) {
    std::getline(std::ifstream(facts.path), facts.signature);
    const auto pid = facts.signature.find("(pid ");
    if (pid != std::string::npos) {
        facts.signerIsGone =
            access(fmt::format("/proc/{}", std::atol(facts.signature.c_str() + pid + 5)).c_str(), F_OK) != 0;
    }
}

// The lock of the entries is held for moments: who holds it again and again holds it for long.
std::vector<std::string> LastingHolders(const std::string& path) {
    constexpr int kLooks = 3;
    auto holders = LockHolders(HeldLocks(), path);
    for (int look = 1; look < kLooks && !holders.empty(); ++look) {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        const auto again = LockHolders(HeldLocks(), path);
        std::erase_if(holders, [&](const std::string& holder) {
            return std::find(again.begin(), again.end(), holder) == again.end();
        });
    }
    return holders;
}

void AddLock(Facts& facts, LockFacts lock) {
    lock.isForeign = WhatLiesAt(lock.path) == Lies::kForeign;
    if (lock.isForeign || !lock.holders.empty()) {
        facts.locks.push_back(std::move(lock));
    }
}

void GatherLocks(Facts& facts) {
    LockFacts lifecycle{kLifecycleLockPath, false, LockHolders(HeldLocks(), kLifecycleLockPath), "", false};
    if (!lifecycle.holders.empty()) {
        AddSignature(lifecycle);
    }
    AddLock(facts, std::move(lifecycle));
    AddLock(facts, {kConfigLock, false, LastingHolders(kConfigLock), "", false});
    for (const char* path : kOtherLockPaths) {
        AddLock(facts, {path, false, {}, "", false});
    }
}

// A line such as "MemTotal:        8052312 kB".
std::optional<std::uint64_t> MemoryLine(const std::string& text, const std::string& name) {
    const auto at = text.find(name + ":");
    return at == std::string::npos
               ? std::nullopt
               : std::optional(std::strtoull(text.c_str() + at + name.size() + 1, nullptr, 10) * 1024);
}

void GatherMemory(Facts& facts, const Gathering& gathering) {
    const std::string text = TextAt("/proc/meminfo");
    facts.memory = {MemoryLine(text, "MemTotal"), MemoryLine(text, "MemAvailable")};
    if (!facts.memory.total || !facts.memory.available) {
        gathering.Miss(Source::kMemory, "", "/proc/meminfo does not tell it");
    }
}

// The pin tool's list has a volume's mount path in brackets and then its files, one a line.
std::vector<std::string> PinnedMounts() {
    std::vector<std::string> mounts;
    std::string mount;
    std::ifstream file("/usr/vemo/etc/flashcache_pin_file.conf");
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with('[') && line.ends_with(']')) {
            mount = line.substr(1, line.size() - 2);
        } else if (line.starts_with('/') && !mount.empty()) {
            mounts.push_back(std::exchange(mount, ""));
        }
    }
    return mounts;
}

void GatherPins(Facts& facts, const Gathering& gathering) {
    for (const auto& mount : PinnedMounts()) {
        const bool isMounted = std::any_of(gathering.mounts.begin(), gathering.mounts.end(),
                                           [&](const Mount& one) { return one.folder == mount; });
        const bool isConfigured = std::any_of(
            facts.caches.begin(), facts.caches.end(),
            [&](const CacheFacts& cache) { return cache.entry && cache.entry->mountPath == mount; });
        if (!isMounted && !isConfigured && !facts.config.damage) {
            facts.strayPins.push_back(mount);
        }
    }
}

void GatherMarkers(Facts& facts) {
    constexpr const char* kRunMarker = "/tmp/flashcache_file_statistics_processing";
    if (WhatLiesAt(kRunMarker) == Lies::kOurs && FlashcacheFileStatisticsIsProcessing() != 1) {
        // A line such as pid="812".
        const std::string text = TextAt(kRunMarker);
        const auto digits = text.find_first_of("0123456789", std::min(text.find("pid="), text.size()));
        facts.deadFileRun =
            digits == std::string::npos ? "" : fmt::format("process {}", std::atol(text.c_str() + digits));
    }
    for (const char* path : {"/tmp/flashcache_stats", "/flashcache-create-64mb", "/tmp/cache-debug-remove"}) {
        if (WhatLiesAt(path) == Lies::kOurs) {
            facts.overrides.emplace_back(path);
        }
    }
}

}  // namespace

bool IsChangeUnderWay() {
    return !LockHolders(HeldLocks(), kLifecycleLockPath).empty();
}

ConfigFacts GatherConfig(const Inventory& inventory) {
    ConfigFacts facts;
    const std::string text = TextAt(kConfigPath);
    std::istringstream lines(text);
    if (const auto damage = FindDamage(lines)) {
        facts.damage = {damage->line, damage->why};
    } else if (inventory.configError) {
        facts.damage = {std::nullopt, inventory.configError->why};
    }
    const Lies copy = WhatLiesAt(kConfigCopyPath);
    facts.hasCopy = copy == Lies::kOurs;
    facts.copyIsForeign = copy == Lies::kForeign;
    facts.copyDiffers = facts.hasCopy && TextAt(kConfigCopyPath) != text && DifferUnderLock();
    return facts;
}

void GatherAppliance(Facts& facts, const Gathering& gathering) {
    GatherLocks(facts);
    GatherMemory(facts, gathering);
    GatherPins(facts, gathering);
    GatherMarkers(facts);
}

}  // namespace cli
