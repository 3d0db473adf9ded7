#include "caches/fresh_pair.h"

#include <fmt/format.h>

#include <algorithm>

#include "caches/running.h"
#include "output/record.h"
#include "support/device.h"

namespace cli {
namespace {

void RequireFree(const Inventory& inventory, const std::string& path, const std::string& role) {
    for (const auto& cache : inventory.caches) {
        if (SameDevice(cache.Ssd(), path) || SameDevice(cache.Volume(), path)) {
            throw Failure{fmt::format("the {} {} belongs to the cache {}", role, path, cache.Name()),
                          cache.IsUp() ? fmt::format("it runs as {}", cache.device)
                                       : "it is configured, but not loaded",
                          fmt::format("vemocachectl status {}", cache.Name()), std::nullopt,
                          FailureKind::kInUse};
        }
    }
    RequireUnused(path, role);
}

// The kernel goes by the last parts of the two paths: no two caches can share them, and the library cannot
// describe a cache for which they are too long.
void RequireNameOfItsOwn(const Inventory& inventory, const std::string& ssd, const std::string& volume) {
    constexpr std::size_t kLongest = 29;  // 28 and the "+" between them
    const std::string name = KernelName(ssd, volume);
    if (name.size() > kLongest) {
        throw Failure{fmt::format("the names of {} and {} are too long together", ssd, volume),
                      fmt::format("{} has {} characters, and a cache's status can be read up to {}", name,
                                  name.size(), kLongest),
                      "use a device with a shorter name", std::nullopt, FailureKind::kRefused};
    }
    // It would part the name of each knob where sysctl looks for a folder.
    if (name.find('.') != std::string::npos) {
        throw Failure{fmt::format("a cache cannot be tuned when its name has a \".\": {}", name),
                      "sysctl takes it for the end of a folder's name", "use a device of another name",
                      std::nullopt, FailureKind::kRefused};
    }
    for (const auto& cache : inventory.caches) {
        if (!cache.Ssd().empty() && KernelName(cache.Ssd(), cache.Volume()) == name) {
            throw Failure{fmt::format("the kernel cannot tell this cache from {}", cache.Name()),
                          fmt::format("both would be {} to it", name), "use a device of another name",
                          std::nullopt, FailureKind::kRefused};
        }
    }
}

}  // namespace

void RequireFreshPair(const Inventory& inventory, const std::string& ssd, const std::string& volume) {
    RequireBlockDevice(ssd, "SSD");
    RequireBlockDevice(volume, "volume");
    if (SameDevice(ssd, volume)) {
        throw Failure{"SSD and volume are one device", fmt::format("both are {}", ssd), "", std::nullopt,
                      FailureKind::kRefused};
    }
    RequireFree(inventory, ssd, "SSD");
    RequireFree(inventory, volume, "volume");
    RequireNameOfItsOwn(inventory, ssd, volume);
}

std::string FreshName(const Inventory& inventory, const std::string& wanted, const std::string& ssd,
                      const std::string& volume) {
    const std::string name = wanted.empty() ? KernelName(ssd, volume) : wanted;
    const bool isTaken =
        std::any_of(inventory.caches.begin(), inventory.caches.end(),
                    [&](const Cache& cache) { return cache.entry != nullptr && cache.Name() == name; });
    if (isTaken) {
        throw Failure{fmt::format("there is a cache {} already", name), "", "name the new one with --name",
                      std::nullopt, FailureKind::kInUse};
    }
    return name;
}

std::string CheckEntryName(const std::string& name) {
    if (name.empty() || name.find_first_of("]/\n\r") != std::string::npos || name.starts_with("cachedev") ||
        name.front() == ' ' || name.back() == ' ' || name != Printable(name)) {
        return "a name has no \"/\", no \"]\", no control characters, no blanks around, and is no cachedev_N";
    }
    return "";
}

}  // namespace cli
