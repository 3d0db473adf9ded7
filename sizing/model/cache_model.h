#pragma once

#include <optional>
#include <vector>

#include "base/write_mode.h"
#include "sizing/model/cleaning.h"
#include "sizing/model/counters.h"
#include "sizing/model/knobs.h"
#include "sizing/model/sequence.h"
#include "sizing/model/slot_map.h"

namespace sizing {

// The part of a block that a request is of.
struct Piece {
    std::uint64_t block = 0;
    std::uint32_t offset = 0;  // within the block
    std::uint32_t length = 0;
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

struct CacheShape {
    WriteMode mode = WriteMode::kBack;
    std::uint32_t blockSize = 0;  // bytes
    std::uint64_t slots = 0;
    std::uint64_t associativity = SlotMap::kAssociativity;
};

// Decides what is cached and where, what makes way and what is cleaned, and counts it. It knows no disks: a
// request is decided as a whole, as if all of it went well, and then carried out, or not, by whoever asked.
class CacheModel {
  public:
    using Slot = SlotMap::Slot;

    explicit CacheModel(const CacheShape& shape)
        : mode_(shape.mode), blockSize_(shape.blockSize), slots_(shape.slots, shape.associativity) {}

    CacheModel(const CacheModel&) = delete;  // its parts know each other
    CacheModel& operator=(const CacheModel&) = delete;

    std::vector<Step> Read(std::uint64_t offset, std::uint64_t length);
    std::vector<Step> Write(std::uint64_t offset, std::uint64_t length, std::uint64_t now);
    // Steps for the cached blocks alone; those without a slot are dropped, the others are to become zeros in
    // part.
    std::vector<Step> Discard(std::uint64_t offset, std::uint64_t length);

    // The same for a piece of a request. Long streams bypass the cache.
    bool IsLongStream(std::uint64_t offset, std::uint64_t length);
    void ReadPiece(Step& step, bool bypass);
    void WritePiece(Step& step, bool bypass, std::uint64_t now);
    void DiscardPiece(Step& step);

    // The first piece of a range.
    Piece PieceAt(std::uint64_t offset, std::uint64_t length) const;
    bool IsWhole(const Piece& piece) const { return piece.length == blockSize_; }

    void MarkDirty(Slot slot);
    void MarkClean(Slot slot);
    // These were written back.
    void MarkCleaned(const Cleaning::Batch& batch);
    void Count(Counter counter, std::uint64_t count = 1) { counters_.Add(counter, count); }
    void SetKnob(Knob knob, std::int32_t value);

    WriteMode Mode() const { return mode_; }
    SlotMap& Slots() { return slots_; }
    const SlotMap& Slots() const { return slots_; }
    Cleaning& Cleaner() { return cleaning_; }
    const Cleaning& Cleaner() const { return cleaning_; }
    const KnobValues& Knobs() const { return knobs_; }
    Counters& Counts() { return counters_; }
    const Counters& Counts() const { return counters_; }

  private:
    std::vector<Step> StepsOf(std::uint64_t offset, std::uint64_t length) const;
    void WriteBack(Step& step, bool bypass);
    void WriteThrough(Step& step);
    void Give(Step& step);
    void Touch(Slot slot);

    WriteMode mode_;
    std::uint32_t blockSize_;
    SlotMap slots_;
    SequenceTracker sequence_;
    KnobValues knobs_;
    Cleaning cleaning_{slots_, knobs_};
    Counters counters_;
};

}  // namespace sizing
