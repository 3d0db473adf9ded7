#include "text_map.h"

#include <algorithm>
#include <functional>

namespace vemo::platform {

namespace {

constexpr size_t kFewestSlots = 64;

uint32_t HashOf(std::string_view text) {
    return static_cast<uint32_t>(std::hash<std::string_view>{}(text));
}

}  // namespace

const TextMap::Entry* TextMap::Find(std::string_view key) const {
    if (entries_.empty()) return nullptr;
    const size_t mask = slots_.size() - 1;
    const uint32_t hash = HashOf(key);
    for (size_t at = hash & mask; slots_[at].position != 0; at = (at + 1) & mask) {
        if (slots_[at].hash != hash) continue;
        const Entry& entry = entries_[slots_[at].position - 1];
        if (entry.key == key) return &entry;
    }
    return nullptr;
}

void TextMap::Insert(std::string_view key, std::string_view value) {
    if (slots_.size() < 2 * (entries_.size() + 1)) Rebuild(std::max(kFewestSlots, 2 * slots_.size()));
    entries_.push_back({key, value});
    Place({HashOf(key), static_cast<uint32_t>(entries_.size())});
}

void TextMap::Place(Slot slot) {
    const size_t mask = slots_.size() - 1;
    size_t at = slot.hash & mask;
    while (slots_[at].position != 0) at = (at + 1) & mask;
    slots_[at] = slot;
}

void TextMap::Rebuild(size_t slotCount) {
    std::vector<Slot> old(slotCount);
    old.swap(slots_);
    for (const Slot slot : old) {
        if (slot.position != 0) Place(slot);
    }
}

void TextMap::Clear() {
    entries_.clear();
    // Emptied for every section: the slots of one huge section must not be swept again for each small one.
    if (slots_.size() > 4 * kFewestSlots) slots_.resize(kFewestSlots);
    std::fill(slots_.begin(), slots_.end(), Slot{});
}

}  // namespace vemo::platform
