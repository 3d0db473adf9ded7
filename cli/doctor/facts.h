// What is known of the caches at one moment, from three sides: the configuration, the kernel, the SSDs; and
// of the appliance around them. Plain values, gathered once: what is wrong is judged from them alone, and can
// be judged of facts that were stored or made up.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "caches/kernel_files.h"
#include "caches/ssd_content.h"
#include "caches/unload_record.h"
#include "support/disk_model.h"
#include "vemoflashcache.h"

namespace cli {

// Where facts come from; each can fail to answer.
enum class Source {
    kConfiguration,  // the permanent configuration file
    kTable,          // the kernel's table of a cache device
    kKnobs,
    kDirtyBlocks,  // the kernel's count
    kErrors,       // the kernel's counts of errors
    kCounters,     // the kernel's counters of reads and writes
    kAttribute,
    kSuperblock,  // what the SSD tells of its cache
    kBlockList,   // the SSD's list of dirty blocks
    kDatabase,    // which SSDs are supported
    kMemory,
    kLocks,
};

// A fact that could not be had.
struct Unread {
    Source source;
    std::string cache;  // empty: of the whole appliance
    std::string why;
};

// A cache's entry.
struct EntryFacts {
    FLASHCACHE_POLICY policy{};
    std::int32_t format = FLASHCACHE_VERSION_UNKNOWN;
    std::uint64_t bytes = 0;
    std::string mountPath;
    std::string flushState;
    bool isLoaded = false;      // so it is recorded
    bool isUnfinished = false;  // its creation
    bool ssdMarkedMissing = false;
    bool volumeMarkedMissing = false;
};

// What the kernel tells of a cache that is up.
struct KernelFacts {
    std::optional<std::int32_t> mode;
    std::uint64_t blockSize = 0;  // bytes; 0: not known
    std::optional<std::uint64_t> blocks;
    std::optional<std::uint64_t> cachedBlocks;
    std::optional<std::uint64_t> dirtyBlocks;
    std::optional<std::uint64_t> bytes;  // of the cache device
    std::optional<Counts> knobs;
    std::optional<Counts> errors;
    std::optional<Counts> counters;
    std::optional<FLASHCACHE_ATTRIBUTE> attribute;
};

struct SsdFacts {
    bool isThere = false;
    std::optional<SsdContent> content;     // the dirty blocks of one whose cache is not up
    bool isOfUnknownLayout = false;        // it holds a cache of which nothing more can be told
    bool isOfOtherVolume = false;          // its cache is
    std::vector<Disk> disks;               // those with a model
    std::vector<std::string> unsupported;  // models among them
};

struct VolumeFacts {
    bool isThere = false;
    std::optional<std::uint64_t> bytes;
    std::vector<std::string> mounts;  // where it is mounted by itself, past its cache
    SinceUnload since;                // of a cache that is not up
};

// The flush that is recorded or runs, and how long its count has stood still, as far as that was seen.
struct FlushFacts {
    bool runs = false;  // some vemocachectl works on it
    std::optional<std::uint64_t> secondsWithoutProgress;
};

struct CacheFacts {
    std::string name;
    std::string device;  // empty: not up
    std::string ssd;     // paths; empty: not known
    std::string volume;
    std::optional<EntryFacts> entry;
    bool entryIsUnknown = false;  // there may be one, but the configuration is damaged
    bool mayBeUp = false;         // whether it is up is not known
    bool mayBeChanging = false;   // some vemocachectl creates, loads, unloads or deletes a cache
    std::optional<KernelFacts> kernel;
    SsdFacts ssdSide;
    VolumeFacts volumeSide;
    FlushFacts flush;

    [[nodiscard]] bool IsUp() const { return kernel.has_value(); }
    [[nodiscard]] bool IsKnownDown() const { return !kernel && !mayBeUp; }
    // A FLASHCACHE_WRITE_MODE, as the kernel tells it, else the SSD, else the entry.
    [[nodiscard]] std::optional<std::int32_t> Mode() const;
    // Whether blocks may lie on its SSD alone; true when that is not known.
    [[nodiscard]] bool MayHoldDirty() const;
    // As the kernel counts them while it is up, else the SSD.
    [[nodiscard]] std::optional<std::uint64_t> DirtyBlocks() const;
    [[nodiscard]] std::uint64_t BlockSize() const;  // bytes; 0: not known
    // Of a knob, an error or a counter; nothing when it is not known.
    [[nodiscard]] std::optional<std::int64_t> Knob(std::string_view name) const;
    [[nodiscard]] std::optional<std::int64_t> Error(std::string_view name) const;
    [[nodiscard]] std::optional<std::int64_t> Counter(std::string_view name) const;
    [[nodiscard]] bool IsFlushRecorded() const { return entry && entry->flushState == "flushing"; }
};

// The configuration file and the copy of it that flushes read.
struct ConfigFacts {
    struct Damage {
        std::optional<std::uint64_t> line;  // from 1; nothing: all of it cannot be read
        std::string why;
    };
    std::optional<Damage> damage;
    bool hasCopy = false;
    bool copyIsForeign = false;  // what lies in its place is somebody else's
    bool copyDiffers = false;
};

struct LockFacts {
    std::string path;
    bool isForeign = false;            // somebody else laid it there
    std::vector<std::string> holders;  // "name (pid)"
    std::string signature;             // what the holder wrote of itself
    bool signerIsGone = false;
};

struct MemoryFacts {
    std::optional<std::uint64_t> total;  // bytes
    std::optional<std::uint64_t> available;
};

struct Facts {
    std::vector<CacheFacts> caches;
    std::string chosen;  // the name of the one that was asked for; empty: all were
    ConfigFacts config;
    std::vector<LockFacts> locks;  // those that are held or not ours
    MemoryFacts memory;
    std::vector<std::string> strayPins;      // mount paths with pinned files where no volume is
    std::vector<std::string> overrides;      // files that change what the library does
    std::optional<std::string> deadFileRun;  // the process of a file statistics run that died; "": not told
    std::vector<Unread> unread;
};

}  // namespace cli
