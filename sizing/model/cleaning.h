#pragma once

#include <cstdint>
#include <deque>
#include <optional>
#include <vector>

#include "sizing/model/knobs.h"
#include "sizing/model/slot_map.h"

namespace sizing {

// Decides which dirty blocks are to be cleaned, that is written back to the volume, and when. It writes
// nothing: who asks cleans them, or puts a set off where that fails.
//
//  Unasked, a set is cleaned that has more dirty blocks than its share, and are blocks that lie fallow, that
// is were not written for a while. Times are in nanoseconds from any start.
class Cleaning {
  public:
    using Slot = SlotMap::Slot;
    using Set = SlotMap::Set;

    // The oldest dirty blocks of a set, so many.
    struct Due {
        Set set = 0;
        std::uint64_t blocks = 0;
    };
    // Slots that follow each other and hold blocks that do so too, all dirty.
    struct Batch {
        Slot first = 0;
        std::uint64_t count = 0;
    };

    Cleaning(const SlotMap& slots, const KnobValues& knobs);

    // What is told to it: a write, that a slot became dirty, and that anything else may have changed.
    void NoteWritten(Slot slot, std::uint64_t now) { writtenAt_[slot] = now; }
    void NoteDirty(Slot slot);
    void LookAnew();
    // All that is dirty was written at this time.
    void Reset(std::uint64_t now);

    bool MayCleanUnasked() const;
    // A set that has too many dirty blocks, and how many too many.
    std::optional<Due> Excess();
    // A set with dirty blocks, and all of them.
    std::optional<Due> Any();
    // Other sets get their turn before this one.
    void PutOff(Set set);
    // The oldest dirty blocks of a set that can be written in one go.
    Batch Oldest(Set set, std::uint64_t most) const;

    // The blocks that lie fallow and have their turn: in each second a few of a set.
    std::vector<Slot> TakeFallow(std::uint64_t now);
    // When there may be such; nothing: not before a write.
    std::optional<std::uint64_t> FallowAt() const;

  private:
    static constexpr std::uint64_t kNever = ~std::uint64_t{0};

    std::uint64_t Share(Set set) const;
    std::uint64_t Delay() const;
    void TakeFallowOf(Set set, std::uint64_t now, std::vector<Slot>& taken);

    const SlotMap& slots_;
    const KnobValues& knobs_;
    std::vector<std::uint64_t> writtenAt_;  // of each slot
    std::vector<std::uint64_t> fallowAt_;   // of each set: none of its blocks lies fallow before
    std::uint64_t nextFallow_ = kNever;     // the earliest of those, and not before the next turn
    std::uint64_t nextTurn_ = 0;
    std::deque<Set> excess_;  // sets that may have too many dirty blocks
    std::vector<bool> isListed_;
    Set any_ = 0;
};

}  // namespace sizing
