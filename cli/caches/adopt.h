// Entries for caches that the configuration does not know, from what else tells of them.
#pragma once

#include <string>

#include "caches/inventory.h"
#include "caches/ssd_content.h"

namespace cli {

// A new entry from a cache that runs: its mode, size, format and tuning, as the kernel tells them.
void WriteEntryOfRunning(const Cache& cache, const std::string& section, const std::string& mountPath);

// A new entry from what the SSD holds, with the kernel's own tuning.
void WriteEntryOfSsd(const SsdContent& content, const std::string& ssd, const std::string& volume,
                     const std::string& section);

}  // namespace cli
