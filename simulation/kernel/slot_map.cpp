#include "simulation/kernel/slot_map.h"

#include <algorithm>
#include <array>

#include "simulation/kernel/superblock.h"

namespace simulation {

namespace {

constexpr uint64_t kEntriesPerPage = 4096 / sizeof(uint64_t);
using Page = std::array<uint64_t, kEntriesPerPage>;

std::span<char> Bytes(Page& page) {
    return {reinterpret_cast<char*>(page.data()), sizeof page};
}

}  // namespace

SlotMap::SlotMap(Disk& ssd, Disk& space, uint64_t slots) : ssd_(ssd), space_(space), entries_(slots) {
    for (uint64_t slot = slots; slot > 0; --slot) {
        free_.push_back(static_cast<Slot>(slot - 1));
    }
}

void SlotMap::Load(bool keepClean) {
    free_.clear();
    for (uint64_t slot = entries_.size(); slot > 0;) {
        Page page{};
        const uint64_t first = (slot - 1) / kEntriesPerPage * kEntriesPerPage;
        ssd_.Read(kMapOffset + first * sizeof(uint64_t), Bytes(page));
        for (; slot > first; --slot) {
            const uint64_t raw = page[slot - 1 - first];
            const bool dirty = raw & base::kSlotDirty;
            if ((raw & base::kSlotUsed) && (dirty || keepClean)) {
                Use(static_cast<Slot>(slot - 1), raw >> base::kSlotFlagBits, dirty);
                entries_[slot - 1].dirtyOnSsd = dirty;
                continue;
            }
            free_.push_back(static_cast<Slot>(slot - 1));
            if (raw & base::kSlotUsed) {
                changedPages_.insert(first / kEntriesPerPage);
            }
        }
    }
}

size_t SlotMap::Persist() {
    FlushData();
    const size_t pages = changedPages_.size();
    while (!changedPages_.empty()) {
        WritePage(*changedPages_.begin());
    }
    ssd_.Flush();
    return pages;
}

// Before the SSD's map calls a slot dirty, its data must be there to stay; before it calls one clean, that of
// the volume must.
void SlotMap::FlushData() {
    space_.Flush();
    ssd_.Flush();
}

void SlotMap::WritePage(uint64_t number) {
    Page page{};
    const uint64_t first = number * kEntriesPerPage;
    const uint64_t end = std::min<uint64_t>(first + kEntriesPerPage, entries_.size());
    for (uint64_t slot = first; slot < end; ++slot) {
        Entry& entry = entries_[slot];
        if (entry.used) {
            page[slot - first] =
                entry.block << base::kSlotFlagBits | (entry.dirty ? base::kSlotDirty : 0) | base::kSlotUsed;
        }
        entry.dirtyOnSsd = entry.dirty;
    }
    ssd_.Write(kMapOffset + first * sizeof(uint64_t), Bytes(page));
    changedPages_.erase(number);
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
    if (entries_[slot].dirtyOnSsd) {
        FlushData();
        WritePage(slot / kEntriesPerPage);
        ssd_.Flush();
    }
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
    changedPages_.insert(slot / kEntriesPerPage);
}

void SlotMap::Drop(Slot slot) {
    Entry& entry = entries_[slot];
    ListOf(entry).erase(entry.place);
    byBlock_.erase(entry.block);
    entry.used = false;
    entry.dirty = false;
    free_.push_back(slot);
    changedPages_.insert(slot / kEntriesPerPage);
}

void SlotMap::SetDirty(Slot slot, bool dirty) {
    Entry& entry = entries_[slot];
    if (entry.dirty != dirty) {
        std::list<Slot>& from = ListOf(entry);
        entry.dirty = dirty;
        ListOf(entry).splice(ListOf(entry).end(), from, entry.place);
        changedPages_.insert(slot / kEntriesPerPage);
    }
}

void SlotMap::Touch(Slot slot) {
    std::list<Slot>& list = ListOf(entries_[slot]);
    list.splice(list.end(), list, entries_[slot].place);
}

}  // namespace simulation
