#include "simulation/kernel/ssd_map.h"

#include <algorithm>

#include "simulation/kernel/superblock.h"

namespace simulation {

namespace {

constexpr uint64_t kPerPage = SlotMap::kSlotsPerPage;

std::span<char> Bytes(std::vector<base::MapEntry>& entries) {
    return {reinterpret_cast<char*>(entries.data()), entries.size() * sizeof(base::MapEntry)};
}

uint64_t OffsetOf(uint64_t page) {
    return kMapOffset + page * kPerPage * sizeof(base::MapEntry);
}

base::MapEntry EntryOf(const SlotMap& slots, SlotMap::Slot slot) {
    if (!slots.IsUsed(slot)) {
        return 0;
    }
    return slots.BlockOf(slot) << base::kSlotFlagBits | (slots.IsDirty(slot) ? base::kSlotDirty : 0) |
           base::kSlotUsed;
}

}  // namespace

void SsdMap::Load(bool keepClean) {
    slots_.Clear();
    for (uint64_t slot = slots_.Total(); slot > 0;) {
        std::vector<base::MapEntry> page(kPerPage);
        const uint64_t first = (slot - 1) / kPerPage * kPerPage;
        ssd_.Read(OffsetOf(first / kPerPage), Bytes(page));
        for (; slot > first; --slot) {
            const auto number = static_cast<Slot>(slot - 1);
            const base::MapEntry raw = page[number - first];
            const bool dirty = raw & base::kSlotDirty;
            if ((raw & base::kSlotUsed) && (dirty || keepClean)) {
                slots_.RestoreUsed(number, raw >> base::kSlotFlagBits, dirty);
                callsDirty_[number] = dirty;
                continue;
            }
            slots_.RestoreFree(number);
            if (raw & base::kSlotUsed) {
                slots_.NoteChange(number);
            }
        }
    }
}

// Before the map calls a slot dirty, its data must be there to stay.
size_t SsdMap::Persist() {
    const Pages pages = slots_.ChangedPages();
    ssd_.Flush();
    if (!pages.empty()) {
        WritePages(pages, {});
    }
    return pages.size();
}

void SsdMap::CallFree(const std::set<Slot>& unwritten) {
    Pages pages;
    for (const Slot slot : unwritten) {
        if (callsDirty_[slot]) {
            pages.insert(slot / kPerPage);
        }
    }
    ssd_.Flush();
    WritePages(pages, unwritten);
}

// A write or flush that fails may have reached the SSD or not: until all went well a slot that was called
// dirty before or is now counts as such, and the pages as changed.
void SsdMap::WritePages(const Pages& pages, const std::set<Slot>& unwritten) {
    const auto entryOf = [&](Slot slot) { return unwritten.contains(slot) ? 0 : EntryOf(slots_, slot); };
    for (auto page = pages.begin(); page != pages.end();) {
        const uint64_t first = *page;
        std::vector<base::MapEntry> entries;
        for (; page != pages.end() && *page == first + entries.size() / kPerPage; ++page) {
            for (auto slot = static_cast<Slot>(*page * kPerPage); slot < EndOf(*page); ++slot) {
                entries.push_back(entryOf(slot));
                callsDirty_[slot] = callsDirty_[slot] || (entries.back() & base::kSlotDirty) != 0;
            }
            entries.resize((*page + 1 - first) * kPerPage);
        }
        ssd_.Write(OffsetOf(first), Bytes(entries));
    }
    ssd_.Flush();
    for (const uint64_t page : pages) {
        slots_.ForgetChange(page);
        for (auto slot = static_cast<Slot>(page * kPerPage); slot < EndOf(page); ++slot) {
            callsDirty_[slot] = (entryOf(slot) & base::kSlotDirty) != 0;
        }
    }
    for (const Slot slot : unwritten) {
        slots_.NoteChange(slot);
    }
}

SsdMap::Slot SsdMap::EndOf(uint64_t page) const {
    return static_cast<Slot>(std::min((page + 1) * kPerPage, slots_.Total()));
}

bool SsdMap::Matters() const {
    return slots_.Dirty() > 0 || std::find(callsDirty_.begin(), callsDirty_.end(), true) != callsDirty_.end();
}

}  // namespace simulation
