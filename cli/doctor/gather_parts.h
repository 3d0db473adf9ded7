// The parts of gathering, each in the file of its name.
#pragma once

#include <vector>

#include "caches/inventory.h"
#include "doctor/facts.h"
#include "support/device.h"

namespace cli {

// What all of it draws on, and where it notes what could not be read.
struct Gathering {
    std::uint64_t mostBlocks;  // the longest list of blocks that is read
    std::vector<Mount> mounts;
    std::vector<Unread>& unread;

    void Miss(Source source, const std::string& cache, const std::string& why) const {
        unread.push_back({source, cache, why});
    }
};

CacheFacts GatherCache(const Cache& cache, const Gathering& gathering);

// The kernel's side of a cache that is up.
KernelFacts GatherKernel(const Cache& cache, const Gathering& gathering);

// Whether a flush runs, and since when its count of dirty blocks has stood still; the count is kept for the
// next time in /run/vemocachectl.
FlushFacts GatherFlush(const CacheFacts& cache, bool runs);

ConfigFacts GatherConfig(const Inventory& inventory);

// Whether a process holds the lock under which caches are created, loaded, unloaded and deleted.
bool IsChangeUnderWay();

// All that concerns no single cache.
void GatherAppliance(Facts& facts, const Gathering& gathering);

}  // namespace cli
