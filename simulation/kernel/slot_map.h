#pragma once

#include <cstdint>
#include <list>
#include <optional>
#include <set>
#include <unordered_map>
#include <vector>

#include "simulation/kernel/disk.h"

namespace simulation {

// Which slot of the SSD holds which block of the volume, which slots are dirty, and in what order they are
// given up. Memory is ahead of the map on the SSD until Persist().
//
//  Taking a slot for another block first persists its page when the SSD's map still calls it dirty, so that
// data of one block is never found under the number of another after a crash. Clean slots need no such care:
// they are forgotten when the cache was not taken down in order.
class SlotMap {
  public:
    using Slot = uint32_t;

    SlotMap(Disk& ssd, Disk& space, uint64_t slots);

    // Reads the map back from the SSD.
    void Load(bool keepClean);
    // Makes all data and the SSD's map such that a power cut takes nothing; returns the number of pages
    // written.
    size_t Persist();

    std::optional<Slot> Find(uint64_t block) const;
    // Gives `block` a clean slot, the oldest clean one when none is free; nothing when all are dirty.
    std::optional<Slot> Take(uint64_t block);
    void Drop(Slot slot);
    void SetDirty(Slot slot, bool dirty);
    // Puts a slot at the young end of its list.
    void Touch(Slot slot);

    uint64_t BlockOf(Slot slot) const { return entries_[slot].block; }
    bool IsDirty(Slot slot) const { return entries_[slot].dirty; }
    uint64_t Total() const { return entries_.size(); }
    uint64_t Cached() const { return clean_.size() + dirty_.size(); }
    uint64_t Dirty() const { return dirty_.size(); }
    // The oldest dirty slot; there must be one.
    Slot OldestDirty() const { return dirty_.front(); }
    // How often a block made way for another.
    uint64_t Replaced() const { return replaced_; }

  private:
    struct Entry {
        uint64_t block = 0;
        bool used = false;
        bool dirty = false;
        bool dirtyOnSsd = false;
        std::list<Slot>::iterator place;
    };

    void Use(Slot slot, uint64_t block, bool dirty);
    std::list<Slot>& ListOf(const Entry& entry) { return entry.dirty ? dirty_ : clean_; }
    void FlushData();
    void WritePage(uint64_t page);

    Disk& ssd_;
    Disk& space_;
    std::vector<Entry> entries_;
    std::unordered_map<uint64_t, Slot> byBlock_;
    std::list<Slot> clean_;
    std::list<Slot> dirty_;
    std::vector<Slot> free_;
    std::set<uint64_t> changedPages_;
    uint64_t replaced_ = 0;
};

}  // namespace simulation
