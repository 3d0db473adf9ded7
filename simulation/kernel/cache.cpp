#include "simulation/kernel/cache.h"

#include <algorithm>

namespace simulation {

std::unique_ptr<Cache> Cache::Create(const Superblock& superblock, Disk& ssd, Disk& space, Faults& faults,
                                     const CleanPace& pace) {
    std::unique_ptr<Cache> cache(new Cache(superblock, ssd, space, faults, pace));
    ssd.Punch(kMapOffset, superblock.DataOffset() - kMapOffset);
    WriteSuperblock(ssd, cache->superblock_);
    return cache;
}

std::unique_ptr<Cache> Cache::Load(const Superblock& superblock, Disk& ssd, Disk& space, Faults& faults,
                                   const CleanPace& pace) {
    std::unique_ptr<Cache> cache(new Cache(superblock, ssd, space, faults, pace));
    cache->map_.Load(superblock.clean != 0);
    cache->superblock_.clean = 0;
    WriteSuperblock(ssd, cache->superblock_);
    return cache;
}

Cache::Cache(const Superblock& superblock, Disk& ssd, Disk& space, Faults& faults, const CleanPace& pace)
    : superblock_(superblock),
      ssd_(ssd),
      space_(space),
      faults_(faults),
      pace_(pace),
      size_(space.Size()),
      map_(ssd, space, superblock.slots),
      writtenAt_(superblock.slots, pace_.Now()),  // what is loaded dirty does not lie fallow at once
      block_(superblock.blockSize) {}

Cache::Piece Cache::PieceAt(uint64_t offset, uint64_t length) const {
    const uint64_t size = superblock_.blockSize;
    const uint64_t inBlock = offset % size;
    return {offset / size, static_cast<uint32_t>(inBlock),
            static_cast<uint32_t>(std::min(length, size - inBlock))};
}

bool Cache::IsLongStream(uint64_t offset, uint64_t length) {
    const auto threshold = static_cast<uint64_t>(knobs_[Knob::kSkipSeqThreshKb]) * 1024;
    return sequence_.IsLongStream(offset, length, threshold);
}

void Cache::Read(uint64_t offset, std::span<char> into) {
    const bool bypass = IsLongStream(offset, into.size());
    while (!into.empty()) {
        const Piece piece = PieceAt(offset, into.size());
        ReadPiece(piece, into.first(piece.length), bypass);
        into = into.subspan(piece.length);
        offset += piece.length;
    }
}

void Cache::ReadPiece(const Piece& piece, std::span<char> into, bool bypass) {
    Count(Counter::kReads);
    if (const auto slot = map_.Find(piece.block)) {
        Count(Counter::kReadHits);
        Count(Counter::kSsdReads);
        Touch(*slot);
        ssd_.Read(superblock_.SlotOffset(*slot) + piece.offset, into);
        return;
    }
    Count(Counter::kDiskReads);
    if (bypass || knobs_[Knob::kCacheAll] == 0) {
        Count(bypass ? Counter::kUncachedSequentialReads : Counter::kUncachedReads);
        space_.Read(SpaceOffset(piece), into);
        return;
    }
    FetchBlock(piece.block);
    if (!Fill(piece.block, block_)) {
        Count(Counter::kUncachedReads);
    }
    std::copy_n(block_.begin() + piece.offset, piece.length, into.begin());
}

void Cache::Write(uint64_t offset, std::span<const char> from) {
    const bool bypass = IsLongStream(offset, from.size());
    while (!from.empty()) {
        const Piece piece = PieceAt(offset, from.size());
        WritePiece(piece, from.first(piece.length), bypass);
        from = from.subspan(piece.length);
        offset += piece.length;
    }
}

void Cache::WritePiece(const Piece& piece, std::span<const char> from, bool bypass) {
    Count(Counter::kWrites);
    const auto slot = map_.Find(piece.block);
    if (superblock_.mode == WriteMode::kAround) {
        if (slot) {
            map_.Drop(*slot);
        }
        Count(Counter::kUncachedWrites);
        WriteSpace(piece, from);
        return;
    }
    if (slot) {
        Count(Counter::kWriteHits);
        Touch(*slot);
    }
    if (superblock_.mode == WriteMode::kBack && knobs_[Knob::kCacheAll] != 0) {
        WriteBack(piece, from, bypass);
        return;
    }
    WriteThrough(piece, from);
    if (!slot && (knobs_[Knob::kCacheAll] == 0 || !IsWhole(piece) || !Fill(piece.block, from))) {
        Count(Counter::kUncachedWrites);
    }
}

void Cache::WriteBack(const Piece& piece, std::span<const char> from, bool bypass) {
    const auto slot = map_.Find(piece.block);
    if (!slot && bypass) {
        Count(Counter::kUncachedSequentialWrites);
        WriteSpace(piece, from);
    } else if (!slot) {
        WriteMiss(piece, from);
    } else {
        if (map_.IsDirty(*slot)) {
            Count(Counter::kDirtyWriteHits);
        }
        WriteSlot(*slot, piece.offset, from);
        MarkDirty(*slot);
    }
}

void Cache::WriteMiss(const Piece& piece, std::span<const char> from) {
    if (!IsWhole(piece)) {
        FetchBlock(piece.block);
        Count(Counter::kDiskReads);
    }
    std::copy(from.begin(), from.end(), block_.begin() + piece.offset);
    if (const auto slot = Fill(piece.block, block_)) {
        Count(Counter::kWriteMissSsd);
        MarkDirty(*slot);
    } else {
        Count(Counter::kUncachedWrites);
        WriteSpace(piece, from);
    }
}

void Cache::WriteThrough(const Piece& piece, std::span<const char> from) {
    const auto slot = map_.Find(piece.block);
    if (slot) {
        WriteSlot(*slot, piece.offset, from);
        if (map_.IsDirty(*slot) && !IsWhole(piece)) {
            return;  // the rest of the block is dirty still, and is cleaned together with this
        }
    }
    WriteSpace(piece, from);
    if (slot) {
        MarkClean(*slot);
    }
}

void Cache::WriteSpace(const Piece& piece, std::span<const char> from) {
    Count(Counter::kDiskWrites);
    space_.Write(SpaceOffset(piece), from);
}

void Cache::WriteSlot(Slot slot, uint32_t offset, std::span<const char> from) {
    Count(Counter::kSsdWrites);
    ssd_.Write(superblock_.SlotOffset(slot) + offset, from);
}

// Gives a block a clean slot with that content; nothing when there is no room.
std::optional<Cache::Slot> Cache::Fill(uint64_t block, std::span<const char> content) {
    const uint64_t replaced = map_.Replaced();
    const auto slot = map_.Take(block);
    if (!slot) {
        Count(Counter::kNoRoom);
        return std::nullopt;
    }
    Count(Counter::kReplacement, map_.Replaced() - replaced);
    try {
        WriteSlot(*slot, 0, content);
    } catch (...) {
        map_.Drop(*slot);
        throw;
    }
    return slot;
}

void Cache::FetchBlock(uint64_t block) {
    space_.Read(block * superblock_.blockSize, block_);
}

void Cache::Touch(Slot slot) {
    if (knobs_[Knob::kReclaimPolicy] == kReclaimLru) {
        map_.Touch(slot);
    }
}

void Cache::MarkDirty(Slot slot) {
    writtenAt_[slot] = pace_.Now();
    if (!map_.IsDirty(slot)) {
        map_.SetDirty(slot, true);
        Count(Counter::kMetadataDirties);
    }
}

void Cache::MarkClean(Slot slot) {
    if (map_.IsDirty(slot)) {
        map_.SetDirty(slot, false);
        Count(Counter::kMetadataCleans);
    }
}

void Cache::Discard(uint64_t offset, uint64_t length) {
    const uint64_t blockSize = superblock_.blockSize;
    space_.Punch(offset, length);
    const uint64_t end = offset + length;
    while (offset < end) {
        const Piece piece = PieceAt(offset, end - offset);
        const auto slot = map_.Find(piece.block);
        if (slot && IsWhole(piece)) {
            map_.Drop(*slot);
            Count(Counter::kWriteInvalidates);
        } else if (slot) {
            const std::vector<char> zeros(piece.length);
            WriteSlot(*slot, piece.offset, zeros);
        }
        offset += blockSize - piece.offset;
    }
    Persist();  // or a block that comes back in another slot could have two after a crash
}

void Cache::Sync() {
    Persist();
    space_.DropCache();
}

void Cache::Persist() {
    const size_t pages = map_.Persist();
    if (pages > 0) {
        Count(Counter::kMetadataSsdWrites, pages);
        Count(Counter::kMetadataBatch);
    }
    ssd_.DropCache();
}

void Cache::TakeDown() {
    Persist();
    superblock_.clean = 1;
    WriteSuperblock(ssd_, superblock_);
    space_.DropCache();
}

}  // namespace simulation
