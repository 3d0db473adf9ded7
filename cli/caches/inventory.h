// The caches of this appliance: those that run and those that are configured, as one list.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "caches/library_lists.h"
#include "caches/running.h"
#include "caches/ssd_content.h"
#include "support/failure.h"

namespace cli {

// A configured cache, a running one, or, as is the rule, both. `entry` belongs to the Inventory.
struct Cache {
    const FLASHCACHE_CONFIG* entry = nullptr;
    std::string device;  // "/dev/mapper/cachedev_N" when up, else empty
    StatList stat;       // nothing when not up, or when its status cannot be read
    ErrorSlot statError;
    std::optional<Pair> pair;         // of the device that is up, when its table can be read
    std::optional<SsdContent> onSsd;  // of a cache that is not up, where its SSD tells
    bool entryIsUnknown = false;      // there is none, but the configuration is damaged
    bool mayBeUp = false;             // some device cannot be asked which cache it is, and it may be this one

    [[nodiscard]] bool IsUp() const { return !device.empty(); }
    [[nodiscard]] std::string Name() const;  // of its entry, else of its device
    [[nodiscard]] std::string Ssd() const;   // device paths; empty when not known
    [[nodiscard]] std::string Volume() const;
    // A FLASHCACHE_WRITE_MODE: as the kernel tells it, else as it is configured.
    [[nodiscard]] std::optional<std::int32_t> Mode() const;
    // Whether blocks may lie on the SSD alone in its mode; true when that is not known.
    [[nodiscard]] bool MayHoldDirty() const;
    [[nodiscard]] std::uint64_t BlockSize() const;  // bytes; 0: not known
    // As the kernel tells it, else as it is configured.
    [[nodiscard]] std::optional<std::uint64_t> Bytes() const;
    // The volume whose cache the SSD holds, where that is another one; empty: none that the SSD tells of.
    [[nodiscard]] std::string ForeignVolume() const;
};

struct Inventory {
    ConfigList entries;
    std::optional<Failure> configError;   // why there are no entries
    std::optional<Failure> configDamage;  // why there may be too few
    std::vector<Cache> caches;            // the configured ones first, in the file's order

    // What is wrong with the configuration; nullptr: nothing.
    [[nodiscard]] const Failure* ConfigProblem() const;
};

struct InventoryOptions {
    std::uint64_t mostBlocks =
        kAnyBlocks;          // up to which the dirty blocks are counted on SSDs whose cache is down
    bool withStatus = true;  // false: the tables alone, with one program for all and nothing else
};

Inventory TakeInventory(const InventoryOptions& options = {});

// Throws what is wrong with the configuration, if anything is.
void RequireWholeConfig(const Inventory& inventory);

// The same as a sentence for an answer that is given all the same; empty: nothing is wrong.
std::string ConfigRemark(const Inventory& inventory);

// Throws a Failure when some running device cannot be told from the caches that `what` would harm: "the SSD
// /dev/md3 could be wiped", ...
void RequireAllKnown(const Inventory& inventory, const std::string& what);

// Throws a Failure when it is not known whether the cache is up.
void RequireKnownState(const Cache& cache);

// The cache that an admin names: by section, UUID, cache device (with or without its folder), SSD, volume
// or mount path. Throws a Failure when there is none or more than one.
Cache& Find(Inventory& inventory, const std::string& name);

// The same, but only a cache that is up.
Cache& FindRunning(Inventory& inventory, const std::string& name);

// The same, but only one whose SSD and volume are known, which its knobs go by.
Cache& FindWithPair(Inventory& inventory, const std::string& name);

}  // namespace cli
