// What a report tells of an appliance, as far as one can be brought into that state.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace simulation {

struct ReportedDisk {
    std::string name;      // below /dev
    uint64_t bytes = 0;    // when its cache was brought up
    uint64_t grownTo = 0;  // later; 0: it did not grow
    bool isGone = false;   // it went while its cache was up
};

struct ReportedCache {
    std::string name;    // that doctor and list give it
    std::string device;  // "cachedev_0"; empty: it is not up
    std::string ssd;     // paths
    std::string volume;  // whose it is by the SSD
    std::string mode;
    uint32_t version = 0;
    uint64_t blocks = 0;  // 0: there is nothing on its SSD
    uint64_t cached = 0;
    uint64_t dirty = 0;
    bool isInOrder = true;                                   // it was taken down so
    bool isWiped = false;                                    // while it is up
    std::vector<std::pair<std::string, std::string>> seeds;  // what the kernel tells of it, and how
};

struct ReportedFile {
    std::string path;
    std::string text;
    uid_t user = 0;
};

struct ReportedState {
    std::vector<ReportedDisk> disks;
    std::vector<ReportedCache> caches;
    std::vector<ReportedFile> files;
    std::vector<std::string> modules;
    std::vector<std::string> mounts;  // folders where cache devices were mounted
    std::string memory;               // the text of /proc/meminfo; empty: not told
};

// The state that a report.json tells. Throws std::runtime_error, with each reason, for a text that is no
// report and for a state that cannot be rebuilt.
ReportedState ParseReport(const std::string& text);

}  // namespace simulation
