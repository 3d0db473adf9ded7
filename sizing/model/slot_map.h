#pragma once

#include <cstdint>
#include <list>
#include <optional>
#include <set>
#include <unordered_map>
#include <vector>

namespace sizing {

// Which slot of the SSD holds which block of the volume, which slots are dirty, and in what order they are
// given up. It knows no disks, but notes which pages of a map of it that lies on the SSD are out of date.
class SlotMap {
  public:
    using Slot = uint32_t;
    // So many lie in one page of the SSD's map.
    static constexpr uint64_t kSlotsPerPage = 4096 / sizeof(uint64_t);

    explicit SlotMap(uint64_t slots);

    std::optional<Slot> Find(uint64_t block) const;
    // Gives `block` a clean slot, the oldest clean one when none is free; nothing when all are dirty.
    std::optional<Slot> Take(uint64_t block);
    void Drop(Slot slot);
    void SetDirty(Slot slot, bool dirty);
    // Puts a slot at the young end of its list.
    void Touch(Slot slot);
    // Begins anew: each slot, from the last to the first, is then restored.
    void Clear() { free_.clear(); }
    void RestoreFree(Slot slot) { free_.push_back(slot); }
    void RestoreUsed(Slot slot, uint64_t block, bool dirty) { Use(slot, block, dirty); }

    uint64_t BlockOf(Slot slot) const { return entries_[slot].block; }
    bool IsUsed(Slot slot) const { return entries_[slot].used; }
    bool IsDirty(Slot slot) const { return entries_[slot].dirty; }
    uint64_t Total() const { return entries_.size(); }
    uint64_t Cached() const { return clean_.size() + dirty_.size(); }
    uint64_t Dirty() const { return dirty_.size(); }
    // The oldest first.
    const std::list<Slot>& DirtySlots() const { return dirty_; }
    // How often a block made way for another.
    uint64_t Replaced() const { return replaced_; }

    // The pages of which something changed since they were forgotten here.
    const std::set<uint64_t>& ChangedPages() const { return changedPages_; }
    void NoteChange(Slot slot) { changedPages_.insert(slot / kSlotsPerPage); }
    void ForgetChange(uint64_t page) { changedPages_.erase(page); }

  private:
    struct Entry {
        uint64_t block = 0;
        bool used = false;
        bool dirty = false;
        std::list<Slot>::iterator place;
    };

    void Use(Slot slot, uint64_t block, bool dirty);
    std::list<Slot>& ListOf(const Entry& entry) { return entry.dirty ? dirty_ : clean_; }

    std::vector<Entry> entries_;
    std::unordered_map<uint64_t, Slot> byBlock_;
    std::list<Slot> clean_;
    std::list<Slot> dirty_;
    std::vector<Slot> free_;
    std::set<uint64_t> changedPages_;
    uint64_t replaced_ = 0;
};

}  // namespace sizing
