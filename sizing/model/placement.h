#pragma once

#include <optional>
#include <vector>

#include "sizing/model/counters.h"
#include "sizing/model/knobs.h"
#include "sizing/model/sequence.h"
#include "sizing/model/slot_map.h"

namespace sizing {

// The part of a block that a request is of.
struct Piece {
    uint64_t block = 0;
    uint32_t offset = 0;  // within the block
    uint32_t length = 0;
};

// What is to be done for one piece of a request.
struct Step {
    Piece piece;
    std::optional<SlotMap::Slot> slot;  // where the block lies on the SSD
    bool isNew = false;                 // it was given that slot just now; a read fills it
    bool wasDirty = false;              // before
    bool fetches = false;               // a write needs the rest of the block from the volume
    bool toSpace = false;               // a write goes to the volume
};

// Decides what is cached and where, and counts it. It knows no disks: a request is decided as a whole, as if
// all of it went well, and then carried out, or not, by whoever asked.
class Placement {
  public:
    Placement(WriteMode mode, uint32_t blockSize, uint64_t slots)
        : mode_(mode), blockSize_(blockSize), slots_(slots) {}

    std::vector<Step> Read(uint64_t offset, uint64_t length);
    std::vector<Step> Write(uint64_t offset, uint64_t length);
    // The first piece of a range.
    Piece PieceAt(uint64_t offset, uint64_t length) const;
    bool IsWhole(const Piece& piece) const { return piece.length == blockSize_; }

    void MarkDirty(SlotMap::Slot slot);
    void MarkClean(SlotMap::Slot slot);
    void Count(Counter counter, uint64_t count = 1) { counters_.Add(counter, count); }

    WriteMode Mode() const { return mode_; }
    SlotMap& Slots() { return slots_; }
    const SlotMap& Slots() const { return slots_; }
    KnobValues& Knobs() { return knobs_; }
    const KnobValues& Knobs() const { return knobs_; }
    Counters& Counts() { return counters_; }
    const Counters& Counts() const { return counters_; }

  private:
    using Slot = SlotMap::Slot;

    std::vector<Step> StepsOf(uint64_t offset, uint64_t length) const;
    bool IsLongStream(uint64_t offset, uint64_t length);
    void ReadPiece(Step& step, bool bypass);
    void WritePiece(Step& step, bool bypass);
    void WriteBack(Step& step, bool bypass);
    void WriteThrough(Step& step);
    void Give(Step& step);
    void Touch(Slot slot);

    WriteMode mode_;
    uint32_t blockSize_;
    SlotMap slots_;
    SequenceTracker sequence_;
    KnobValues knobs_;
    Counters counters_;
};

}  // namespace sizing
