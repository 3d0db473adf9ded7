#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <set>
#include <vector>

namespace sizing {

// Which slot of the SSD holds which block of the volume, which slots are dirty, and in what order they are
// given up. It knows no disks, but notes which pages of a map of it that lies on the SSD are out of date.
//
//  The slots are parted into sets. A block may lie in one set alone, 512 neighbours in the same one, and what
//  makes way for it is the oldest clean block of that set.
class SlotMap {
  public:
    using Slot = std::uint32_t;
    using Set = std::uint32_t;
    // A set has so many slots, or some more where the slots are no multiple; all of them where they are
    // fewer.
    static constexpr std::uint64_t kAssociativity = 512;
    static constexpr std::uint64_t kNeighbours = 512;
    // So many lie in one page of the SSD's map.
    static constexpr std::uint64_t kSlotsPerPage = 4096 / sizeof(std::uint64_t);

    explicit SlotMap(std::uint64_t slots, std::uint64_t associativity = kAssociativity);

    std::optional<Slot> Find(std::uint64_t block) const;
    // Gives `block` a clean slot, the oldest clean one of its set when none is free there; nothing when all
    // are dirty.
    std::optional<Slot> Take(std::uint64_t block);
    void Drop(Slot slot);
    void SetDirty(Slot slot, bool dirty);
    // Puts a slot at the young end of its list.
    void Touch(Slot slot);
    // Begins anew: each slot, from the last to the first, is then restored. A used one may hold a block of
    // another set.
    void Clear();
    void RestoreFree(Slot slot);
    void RestoreUsed(Slot slot, std::uint64_t block, bool dirty) { Use(slot, block, dirty); }

    std::uint64_t BlockOf(Slot slot) const { return entries_[slot].block; }
    bool IsUsed(Slot slot) const { return entries_[slot].used; }
    bool IsDirty(Slot slot) const { return entries_[slot].dirty; }
    std::uint64_t Total() const { return entries_.size(); }
    std::uint64_t Cached() const { return cached_; }
    std::uint64_t Dirty() const { return dirty_; }
    // How often a block made way for another.
    std::uint64_t Replaced() const { return replaced_; }

    Set Sets() const { return static_cast<Set>(sets_.size()); }
    Set SetOfBlock(std::uint64_t block) const { return static_cast<Set>(block / kNeighbours % sets_.size()); }
    Set SetOfSlot(Slot slot) const { return entries_[slot].set; }
    std::uint64_t SlotsIn(Set set) const { return sets_[set].slots; }
    std::uint64_t DirtyIn(Set set) const { return sets_[set].dirty.count; }
    // The dirty slots of a set, the oldest first.
    std::optional<Slot> OldestDirty(Set set) const { return Known(sets_[set].dirty.first); }
    std::optional<Slot> NextDirty(Slot slot) const { return Known(entries_[slot].next); }

    // The pages of which something changed since they were forgotten here.
    std::set<std::uint64_t> ChangedPages() const;
    void NoteChange(Slot slot) { isPageChanged_[slot / kSlotsPerPage] = true; }
    void ForgetChange(std::uint64_t page) { isPageChanged_[page] = false; }
    // Forgets all; how many there were.
    std::uint64_t ForgetChanges();

  private:
    static constexpr Slot kNone = ~Slot{0};

    struct Entry {
        std::uint64_t block = 0;
        Slot next = kNone;  // of its list, which is in the order of use
        Slot previous = kNone;
        Slot sameHash = kNone;
        Set set = 0;
        bool used = false;
        bool dirty = false;
    };
    struct List {
        Slot first = kNone;
        Slot last = kNone;
        std::uint32_t count = 0;
    };
    struct SetLists {
        List clean;
        List dirty;
        List free;
        std::uint64_t slots = 0;
    };

    static std::optional<Slot> Known(Slot slot) { return slot == kNone ? std::nullopt : std::optional(slot); }
    std::size_t BucketOf(std::uint64_t block) const;
    List& ListOf(Slot slot);
    void Append(List& list, Slot slot);
    void Prepend(List& list, Slot slot);
    void Unlink(List& list, Slot slot);
    void Use(Slot slot, std::uint64_t block, bool dirty);

    std::vector<Entry> entries_;
    std::vector<SetLists> sets_;
    std::vector<Slot> heads_;  // of the slots whose blocks have the same hash
    std::vector<bool> isPageChanged_;
    std::uint64_t cached_ = 0;
    std::uint64_t dirty_ = 0;
    std::uint64_t replaced_ = 0;
};

}  // namespace sizing
