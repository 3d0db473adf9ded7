#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "simulation/kernel/disk.h"

namespace simulation {

enum class WriteMode : uint32_t { kThru = 0, kBack = 1, kAround = 2 };

/** What lies at the start of an SSD that carries a cache: this record, then from kMapOffset on the map of its
 * slots (8 bytes each), then from DataOffset() on their data. Little-endian, as the machine is. */
struct Superblock {
    char magic[16] = {};
    uint32_t clean = 0;  // taken down in order: the map's clean slots can be trusted too
    uint32_t blockSize = 0;
    uint64_t slots = 0;
    WriteMode mode = WriteMode::kBack;
    uint32_t reserved = 0;
    char name[64] = {};
    char ssd[96] = {};
    char space[96] = {};
    uint32_t version = 0;

    uint64_t DataOffset() const;
    uint64_t SlotOffset(uint32_t slot) const { return DataOffset() + uint64_t{slot} * blockSize; }
};
static_assert(offsetof(Superblock, version) == 296, "where the appliance's tools look for the version");

inline constexpr uint64_t kMapOffset = 4096;
inline constexpr uint32_t kVersionOriginal = 2;  // blocks of 4 KiB
inline constexpr uint32_t kVersionNew = 10;      // blocks of 64 KiB

/** A superblock for as many slots as `bytes` asks for (0: the whole SSD) and as the SSD has room for.
 *  Throws EINVAL where not even one fits. */
Superblock MakeSuperblock(const Disk& ssd, const Disk& space, const std::string& name, WriteMode mode,
                          uint32_t version, uint64_t bytes);

/** The superblock on an SSD; nothing where there is none. */
std::optional<Superblock> ReadSuperblock(const Disk& ssd);
void WriteSuperblock(Disk& ssd, const Superblock& superblock);
void WipeSuperblock(Disk& ssd);

}  // namespace simulation
