// What the compatibility database says of the disks that an SSD is made of.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "support/disk_model.h"

namespace cli {

struct DiskSupport {
    Disk disk;
    std::optional<bool> isSupported;  // nothing: the database does not tell
};

// Each disk beneath the device that has a model.
std::vector<DiskSupport> SupportOfDisks(const std::string& ssd);

// Of all of them; nothing where the database does not tell of one, or no disk has a model.
std::optional<bool> AreSupported(const std::vector<DiskSupport>& disks);

}  // namespace cli
