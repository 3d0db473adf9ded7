#include "sizing/model/slot_map.h"

namespace sizing {

SlotMap::SlotMap(uint64_t slots) : entries_(slots) {
    byBlock_.reserve(slots);
    for (uint64_t slot = slots; slot > 0; --slot) {
        free_.push_back(static_cast<Slot>(slot - 1));
    }
}

std::optional<SlotMap::Slot> SlotMap::Find(uint64_t block) const {
    const auto found = byBlock_.find(block);
    return found == byBlock_.end() ? std::nullopt : std::optional(found->second);
}

std::optional<SlotMap::Slot> SlotMap::Take(uint64_t block) {
    if (free_.empty()) {
        if (clean_.empty()) {
            return std::nullopt;
        }
        ++replaced_;
        Drop(clean_.front());
    }
    const Slot slot = free_.back();
    free_.pop_back();
    Use(slot, block, false);
    return slot;
}

void SlotMap::Use(Slot slot, uint64_t block, bool dirty) {
    Entry& entry = entries_[slot];
    entry.block = block;
    entry.used = true;
    entry.dirty = dirty;
    entry.place = ListOf(entry).insert(ListOf(entry).end(), slot);
    byBlock_[block] = slot;
    NoteChange(slot);
}

void SlotMap::Drop(Slot slot) {
    Entry& entry = entries_[slot];
    ListOf(entry).erase(entry.place);
    byBlock_.erase(entry.block);
    entry.used = false;
    entry.dirty = false;
    free_.push_back(slot);
    NoteChange(slot);
}

void SlotMap::SetDirty(Slot slot, bool dirty) {
    Entry& entry = entries_[slot];
    if (entry.dirty != dirty) {
        std::list<Slot>& from = ListOf(entry);
        entry.dirty = dirty;
        ListOf(entry).splice(ListOf(entry).end(), from, entry.place);
        NoteChange(slot);
    }
}

void SlotMap::Touch(Slot slot) {
    std::list<Slot>& list = ListOf(entries_[slot]);
    list.splice(list.end(), list, entries_[slot].place);
}

}  // namespace sizing
