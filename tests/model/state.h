// The reference model: what the configuration, the records beside it and the caches of an appliance with two
// pairs of disks should be. The same records hold what is found there.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "vemoflashcache.h"

namespace model {

// A configuration entry, in the fields that tests give various values.
struct Entry {
    std::string section;
    std::string uuid;
    std::string ssd;
    std::string space;
    std::string reference;
    std::string flush;
    int mode = FLASHCACHE_WRITE_BACK;
    int reclaim = FLASHCACHE_RECLAIM_LRU;
    int delay = 0;
    int dirtyThresh = 0;
    int skip = 0;
    int version = FLASHCACHE_VERSION_ORIGINAL;
    uint64_t size = 0;

    bool operator==(const Entry&) const = default;
};

// The texts stay the entry's.
FLASHCACHE_CONFIG ToRecord(const Entry& entry);
Entry FromRecord(const FLASHCACHE_CONFIG& record);
std::string ToText(const Entry& entry);

using Entries = std::vector<Entry>;

// By FLASHCACHE_SYSCTL, 1 to 16.
using Knobs = std::array<int, 17>;

inline constexpr int kBlocks = 6;  // of 4 KiB of each volume that are written and read

struct Pair {
    std::string device;    // path of the cache device, empty while the cache is down
    int version = -1;      // of the cache that lies on the SSD, up or not
    int mode = -1;         // that cache's; -1 where it cannot be seen
    bool forced = false;   // while up: force-remove
    Knobs knobs{};         // while up
    std::string content;   // a letter a block: what was acknowledged; '*' for what was given up on request
    std::set<int> unsure;  // blocks that may lie on the SSD alone
};

struct DiskNames {
    const char* ssd;
    const char* space;
    const char* kernelName;
};
inline constexpr std::array<DiskNames, 2> kPairs = {
    {{"/dev/md3", "/dev/vg1/volume_1", "md3+volume_1"}, {"/dev/md4", "/dev/vg1/volume_2", "md4+volume_2"}}};

struct State {
    std::optional<Entries> file;  // the configuration, where there is one
    std::optional<Entries> copy;
    std::optional<std::map<std::string, std::string>> serials;
    bool apmFolder = false;
    std::optional<std::set<std::string>> apmKept;
    std::optional<std::set<std::string>> apmNow;
    std::array<Pair, 2> pairs;
};

// What is there, read past the library where it has no reader without programs. `known` tells what cannot be
// seen, the modes of caches, which blocks are dirty, and what volumes hold whose cache lies on an SSD; and
// what is not looked at unless `wholly`, the knobs and the contents of running caches.
State Observe(const State& known, bool wholly);

// Takes all caches down, wipes the SSDs and removes the files; the state is that of a new appliance then.
State Reset();

// The first difference between the two, empty when there is none.
std::string Difference(const State& expected, const State& found);

// What the volume of a pair holds in its blocks, past the cache where `device` is the volume.
std::string ReadContent(const std::string& device);
bool WriteContent(const std::string& device, int block, char letter);

}  // namespace model
