#include "sizing/model/slot_map.h"

#include <algorithm>
#include <bit>

#include "sizing/hash.h"

namespace sizing {

SlotMap::SlotMap(std::uint64_t slots, std::uint64_t associativity)
    : entries_(slots),
      sets_(std::max<std::uint64_t>(1, slots / associativity)),
      heads_(std::bit_ceil(slots), kNone),
      isPageChanged_((slots + kSlotsPerPage - 1) / kSlotsPerPage) {
    for (std::uint64_t set = 0, slot = 0; set < sets_.size(); ++set) {
        const std::uint64_t first = slot;
        for (; slot < (set + 1) * slots / sets_.size(); ++slot) {
            entries_[slot].set = static_cast<Set>(set);
        }
        sets_[set].slots = slot - first;
    }
    Clear();
    for (std::uint64_t slot = slots; slot > 0; --slot) {
        RestoreFree(static_cast<Slot>(slot - 1));
    }
}

std::optional<SlotMap::Slot> SlotMap::Find(std::uint64_t block) const {
    Slot slot = heads_[BucketOf(block)];
    while (slot != kNone && entries_[slot].block != block) {
        slot = entries_[slot].sameHash;
    }
    return Known(slot);
}

std::optional<SlotMap::Slot> SlotMap::Take(std::uint64_t block) {
    SetLists& set = sets_[SetOfBlock(block)];
    if (set.free.count == 0) {
        if (set.clean.count == 0) {
            return std::nullopt;
        }
        ++replaced_;
        Drop(set.clean.first);
    }
    const Slot slot = set.free.first;
    Unlink(set.free, slot);
    Use(slot, block, false);
    return slot;
}

void SlotMap::Use(Slot slot, std::uint64_t block, bool dirty) {
    Entry& entry = entries_[slot];
    entry.block = block;
    entry.used = true;
    entry.dirty = dirty;
    Append(ListOf(slot), slot);
    Slot& head = heads_[BucketOf(block)];
    entry.sameHash = head;
    head = slot;
    ++cached_;
    dirty_ += dirty ? 1 : 0;
    NoteChange(slot);
}

void SlotMap::Drop(Slot slot) {
    Entry& entry = entries_[slot];
    Slot* link = &heads_[BucketOf(entry.block)];
    while (*link != slot) {
        link = &entries_[*link].sameHash;
    }
    *link = entry.sameHash;
    Unlink(ListOf(slot), slot);
    --cached_;
    dirty_ -= entry.dirty ? 1 : 0;
    entry.used = false;
    entry.dirty = false;
    Prepend(ListOf(slot), slot);
    NoteChange(slot);
}

void SlotMap::SetDirty(Slot slot, bool dirty) {
    Entry& entry = entries_[slot];
    if (entry.dirty == dirty) {
        return;
    }
    Unlink(ListOf(slot), slot);
    entry.dirty = dirty;
    Append(ListOf(slot), slot);
    dirty ? ++dirty_ : --dirty_;
    NoteChange(slot);
}

void SlotMap::Touch(Slot slot) {
    List& list = ListOf(slot);
    Unlink(list, slot);
    Append(list, slot);
}

void SlotMap::Clear() {
    for (Entry& entry : entries_) {
        entry = {.set = entry.set};
    }
    for (SetLists& set : sets_) {
        set.clean = set.dirty = set.free = {};
    }
    std::ranges::fill(heads_, kNone);
    cached_ = 0;
    dirty_ = 0;
}

void SlotMap::RestoreFree(Slot slot) {
    Prepend(ListOf(slot), slot);
}

std::set<std::uint64_t> SlotMap::ChangedPages() const {
    std::set<std::uint64_t> pages;
    for (std::uint64_t page = 0; page < isPageChanged_.size(); ++page) {
        if (isPageChanged_[page]) {
            pages.insert(page);
        }
    }
    return pages;
}

std::uint64_t SlotMap::ForgetChanges() {
    const auto pages = std::ranges::count(isPageChanged_, true);
    isPageChanged_.assign(isPageChanged_.size(), false);
    return static_cast<std::uint64_t>(pages);
}

std::size_t SlotMap::BucketOf(std::uint64_t block) const {
    return Mix(block) & (heads_.size() - 1);
}

SlotMap::List& SlotMap::ListOf(Slot slot) {
    const Entry& entry = entries_[slot];
    SetLists& set = sets_[entry.set];
    return !entry.used ? set.free : entry.dirty ? set.dirty : set.clean;
}

void SlotMap::Append(List& list, Slot slot) {
    entries_[slot].previous = list.last;
    entries_[slot].next = kNone;
    (list.last == kNone ? list.first : entries_[list.last].next) = slot;
    list.last = slot;
    ++list.count;
}

void SlotMap::Prepend(List& list, Slot slot) {
    entries_[slot].previous = kNone;
    entries_[slot].next = list.first;
    (list.first == kNone ? list.last : entries_[list.first].previous) = slot;
    list.first = slot;
    ++list.count;
}

void SlotMap::Unlink(List& list, Slot slot) {
    const Entry& entry = entries_[slot];
    (entry.previous == kNone ? list.first : entries_[entry.previous].next) = entry.next;
    (entry.next == kNone ? list.last : entries_[entry.next].previous) = entry.previous;
    --list.count;
}

}  // namespace sizing
