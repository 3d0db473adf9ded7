#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "base/ssd_layout.h"
#include "simulation/kernel/disk.h"

namespace simulation {

using base::kMapOffset;
using base::kVersionNew;
using base::kVersionOriginal;
using base::Superblock;
using base::WriteMode;

// The mode of a text such as "thru"; the kinds of write-back are one here.
std::optional<WriteMode> ParseMode(const std::string& text);

// A superblock for as many slots as `bytes` asks for (0: the whole SSD) and as the SSD has room for.
//  Throws EINVAL where not even one fits.
Superblock MakeSuperblock(const Disk& ssd, const Disk& space, const std::string& name, WriteMode mode,
                          uint32_t version, uint64_t bytes);

// The superblock on an SSD; nothing where there is none.
std::optional<Superblock> ReadSuperblock(const Disk& ssd);
// Both reach the SSD after all that was written there before, and before all that will be.
void WriteSuperblock(Disk& ssd, const Superblock& superblock);
void WipeSuperblock(Disk& ssd);

}  // namespace simulation
