#include "simulation/platform/text_map.h"

#include <algorithm>
#include <cstring>

namespace vemo::platform {

namespace {

constexpr size_t kFewestSlots = 64;

// Reads every byte, eight at a time: keys are short, and hashing them is half the work on a section.
uint32_t HashOf(std::string_view text) {
    uint64_t hash = text.size();
    const auto mix = [&hash](const char* bytes, size_t count) {
        uint64_t word = 0;
        std::memcpy(&word, bytes, count);
        hash = (hash ^ word) * 0x9E3779B97F4A7C15U;
        hash ^= hash >> 32;
    };
    const char* bytes = text.data();
    size_t left = text.size();
    for (; left > 8; left -= 8, bytes += 8) mix(bytes, 8);
    if (text.size() >= 8) {
        mix(text.data() + text.size() - 8, 8);
    } else {
        for (; left > 0; --left, ++bytes) mix(bytes, 1);
    }
    return static_cast<uint32_t>(hash);
}

}  // namespace

size_t TextMap::SlotOf(std::string_view key, uint32_t hash) const {
    const size_t mask = slots_.size() - 1;
    size_t at = hash & mask;
    for (; slots_[at].position != 0; at = (at + 1) & mask) {
        if (slots_[at].hash == hash && entries_[slots_[at].position - 1].key == key) break;
    }
    return at;
}

const TextMap::Entry* TextMap::Find(std::string_view key) const {
    if (entries_.empty()) return nullptr;
    const uint32_t position = slots_[SlotOf(key, HashOf(key))].position;
    return position == 0 ? nullptr : &entries_[position - 1];
}

bool TextMap::Insert(std::string_view key, std::string_view value) {
    if (slots_.size() < 2 * (entries_.size() + 1)) Grow();
    const uint32_t hash = HashOf(key);
    Slot& slot = slots_[SlotOf(key, hash)];
    if (slot.position != 0) return false;
    entries_.push_back({key, value});
    slot = {hash, static_cast<uint32_t>(entries_.size())};
    return true;
}

void TextMap::Grow() {
    std::vector<Slot> larger(std::max(kFewestSlots, 2 * slots_.size()));
    for (const Slot slot : slots_) {
        if (slot.position == 0) continue;
        size_t at = slot.hash & (larger.size() - 1);
        while (larger[at].position != 0) at = (at + 1) & (larger.size() - 1);
        larger[at] = slot;
    }
    slots_.swap(larger);
}

void TextMap::Clear() {
    entries_.clear();
    // Emptied for every section: the slots of one huge section must not be swept again for each small one.
    if (slots_.size() > 4 * kFewestSlots) slots_.resize(kFewestSlots);
    std::fill(slots_.begin(), slots_.end(), Slot{});
}

}  // namespace vemo::platform
