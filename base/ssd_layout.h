// What lies on an SSD that carries a cache, as far as it is known: a superblock, then from kMapOffset on the
// map of its slots, one entry each, then from DataOffset() on their data. Little-endian, as the machine is.
#pragma once

#include <cstddef>
#include <cstdint>

#include "base/write_mode.h"

namespace base {

inline constexpr char kCacheMagic[16] = "vemo-flashcache";

inline constexpr std::uint32_t kVersionOriginal = 2;  // blocks of 4 KiB
inline constexpr std::uint32_t kVersionNew = 10;      // blocks of 64 KiB

inline constexpr std::uint64_t kMapOffset = 4096;
inline constexpr std::uint64_t kDataAlignment = 65536;

// An entry of the map: the block's number on the volume above two flags.
using MapEntry = std::uint64_t;
inline constexpr MapEntry kSlotUsed = 1;
inline constexpr MapEntry kSlotDirty = 2;
inline constexpr unsigned kSlotFlagBits = 2;

struct Superblock {
    char magic[16] = {};
    std::uint32_t clean = 0;  // taken down in order: the map's clean slots can be trusted too
    std::uint32_t blockSize = 0;
    std::uint64_t slots = 0;
    WriteMode mode = WriteMode::kBack;
    std::uint32_t reserved = 0;
    char name[64] = {};
    char ssd[96] = {};
    char space[96] = {};
    std::uint32_t version = 0;

    std::uint64_t DataOffset() const {
        const std::uint64_t mapEnd = kMapOffset + slots * sizeof(MapEntry);
        return (mapEnd + kDataAlignment - 1) / kDataAlignment * kDataAlignment;
    }
    [[nodiscard]] std::uint64_t SlotOffset(std::uint32_t slot) const {
        return DataOffset() + std::uint64_t{slot} * blockSize;
    }
};
static_assert(offsetof(Superblock, version) == 296, "where the appliance's tools look for the version");

}  // namespace base
