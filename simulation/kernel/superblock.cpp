#include "simulation/kernel/superblock.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "simulation/common/checked.h"

namespace simulation {

Superblock MakeSuperblock(const Disk& ssd, const Disk& space, const std::string& name, WriteMode mode,
                          uint32_t version, uint64_t bytes) {
    Superblock superblock;
    std::memcpy(superblock.magic, base::kCacheMagic, sizeof base::kCacheMagic);
    superblock.version = version;
    superblock.blockSize = version == kVersionNew ? 65536 : 4096;
    superblock.mode = mode;
    name.copy(superblock.name, sizeof superblock.name - 1);
    ssd.Path().copy(superblock.ssd, sizeof superblock.ssd - 1);
    space.Path().copy(superblock.space, sizeof superblock.space - 1);
    const uint64_t size = ssd.Size();
    const uint64_t room = size - std::min(size, kMapOffset + base::kDataAlignment);
    superblock.slots = room / (superblock.blockSize + sizeof(uint64_t));
    if (bytes > 0) {
        superblock.slots = std::min(superblock.slots, bytes / superblock.blockSize);
    }
    if (superblock.slots == 0 || bytes > size) {
        errno = EINVAL;
        ThrowErrno("no room for that cache");
    }
    return superblock;
}

std::optional<Superblock> ReadSuperblock(const Disk& ssd) {
    ssd.DropCache();
    std::array<char, sizeof(Superblock)> raw{};
    ssd.Read(0, raw);
    Superblock superblock;
    std::memcpy(&superblock, raw.data(), raw.size());
    const bool known = std::memcmp(superblock.magic, base::kCacheMagic, sizeof base::kCacheMagic) == 0 &&
                       (superblock.version == kVersionOriginal || superblock.version == kVersionNew);
    return known ? std::optional(superblock) : std::nullopt;
}

namespace {

// Flushed before, since it speaks for the rest of the SSD, and after, since what comes next relies on it.
void WriteFlushed(Disk& ssd, const std::array<char, kMapOffset>& raw) {
    ssd.DropCache();
    ssd.Flush();
    ssd.Write(0, raw);
    ssd.Flush();
    ssd.DropCache();
}

}  // namespace

void WriteSuperblock(Disk& ssd, const Superblock& superblock) {
    std::array<char, kMapOffset> raw{};
    std::memcpy(raw.data(), &superblock, sizeof superblock);
    WriteFlushed(ssd, raw);
}

void WipeSuperblock(Disk& ssd) {
    WriteFlushed(ssd, {});
}

}  // namespace simulation
