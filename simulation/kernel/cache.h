#pragma once

#include <optional>
#include <string>
#include <vector>

#include "simulation/kernel/clean_pace.h"
#include "simulation/kernel/counters.h"
#include "simulation/kernel/disk.h"
#include "simulation/kernel/faults.h"
#include "simulation/kernel/knobs.h"
#include "simulation/kernel/sequence.h"
#include "simulation/kernel/slot_map.h"
#include "simulation/kernel/superblock.h"
#include "simulation/kernel/tree.h"

namespace simulation {

// One live cache: an SSD in front of a volume. A write-back cache keeps what is written on the SSD alone,
// dirty, until it is cleaned, that is written back to the volume.
//
//  With the knob cache_all at 0 nothing new enters the cache and every write goes to the volume, so that a
// flush comes to its end under load.
class Cache : public BlockTarget {
  public:
    // Makes a new cache; what the SSD held is gone.
    static std::unique_ptr<Cache> Create(const Superblock& superblock, Disk& ssd, Disk& space, Faults& faults,
                                         const CleanPace& pace);
    // Brings up the cache that lies on the SSD.
    static std::unique_ptr<Cache> Load(const Superblock& superblock, Disk& ssd, Disk& space, Faults& faults,
                                       const CleanPace& pace);

    const Disk& Ssd() const { return ssd_; }
    const Disk& Space() const { return space_; }
    const Superblock& Format() const { return superblock_; }

    uint64_t Size() const override { return size_; }
    void Read(uint64_t offset, std::span<char> into) override;
    void Write(uint64_t offset, std::span<const char> from) override;
    void Discard(uint64_t offset, uint64_t length) override;
    void Sync() override;

    // Follows the volume to its present size.
    void Expand() { size_ = space_.Size(); }
    // Before the cache is removed: cleans it unless fast_remove says to leave the dirty blocks on the SSD.
    void CleanForRemoval();
    // Leaves the SSD such that everything can be trusted when it is loaded again.
    void TakeDown();

    std::string KnobText(Knob knob) const { return std::to_string(knobs_[knob]) + "\n"; }
    // Takes what was written to a knob's file; an errno, 0 done.
    int SetKnob(Knob knob, std::string_view text);
    std::string Attribute() const { return forceRemove_ ? "force-remove\n" : "none\n"; }
    int SetAttribute(std::string_view text);

    // Cleans what is due now.
    void Work();
    // How long, in milliseconds, until Work() has something to do; -1: not before a request comes.
    int WorkWaitMs() const;
    // Cleans up to that many blocks, whatever the knobs say; returns how many are done.
    uint64_t CleanBlocks(uint64_t count);
    uint64_t DirtyBlocks() const { return map_.Dirty(); }

    std::string Table() const;
    std::string Stats() const;
    std::string Errors() const;
    std::string Progress() const;
    // Makes the kernel report that many failed write-backs.
    void ReportErrors(uint64_t count) { syncErrors_ = count; }

  private:
    using Clock = CleanPace::Clock;
    using Slot = SlotMap::Slot;
    struct Piece {
        uint64_t block;
        uint32_t offset;  // within the block
        uint32_t length;
    };

    Cache(const Superblock& superblock, Disk& ssd, Disk& space, Faults& faults, const CleanPace& pace);

    Piece PieceAt(uint64_t offset, uint64_t length) const;
    bool IsWhole(const Piece& piece) const { return piece.length == superblock_.blockSize; }
    uint64_t SpaceOffset(const Piece& piece) const {
        return piece.block * superblock_.blockSize + piece.offset;
    }
    bool IsLongStream(uint64_t offset, uint64_t length);
    void Count(Counter counter, uint64_t count = 1) { counters_.Add(counter, count); }

    void ReadPiece(const Piece& piece, std::span<char> into, bool bypass);
    void WritePiece(const Piece& piece, std::span<const char> from, bool bypass);
    void WriteBack(const Piece& piece, std::span<const char> from, bool bypass);
    void WriteThrough(const Piece& piece, std::span<const char> from);
    void WriteMiss(const Piece& piece, std::span<const char> from);
    void WriteSpace(const Piece& piece, std::span<const char> from);
    void WriteSlot(Slot slot, uint32_t offset, std::span<const char> from);
    std::optional<Slot> Fill(uint64_t block, std::span<const char> content);
    void FetchBlock(uint64_t block);
    void Touch(Slot slot);
    void MarkDirty(Slot slot);
    void MarkClean(Slot slot);
    void Persist();

    void BeginSync();
    bool MayCleanUnasked() const { return knobs_[Knob::kMaxCleanIosTotal] > 0; }
    bool IsFallow() const;
    std::optional<uint64_t> DirtyGoal() const;
    bool CleanOldest();

    Superblock superblock_;
    Disk& ssd_;
    Disk& space_;
    Faults& faults_;
    const CleanPace& pace_;
    uint64_t size_;
    SlotMap map_;
    std::vector<Clock::time_point> writtenAt_;
    std::vector<char> block_;  // the block at hand
    SequenceTracker sequence_;
    KnobValues knobs_;
    Counters counters_;

    bool forceRemove_ = false;
    bool syncing_ = false;
    int64_t initialDirty_ = -1;
    uint64_t syncErrors_ = 0;
    Clock::time_point lastCleaned_;
    Clock::time_point stalledUntil_;
};

}  // namespace simulation
