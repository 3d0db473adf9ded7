#include "simulation/platform/text_map.h"

#include <algorithm>
#include <cstring>

namespace vemo::platform {

namespace {

constexpr size_t kFewestSlots = 64;

uint64_t WordAt(const char* bytes, size_t count) {
    uint64_t word = 0;
    std::memcpy(&word, bytes, count);
    return word;
}

// Reads every byte, eight at a time, those at the end perhaps twice: keys are short, and hashing them is much
// of the work on a section.
uint32_t HashOf(std::string_view text) {
    const char* bytes = text.data();
    size_t left = text.size();
    uint64_t hash = left;
    const auto mix = [&hash](uint64_t word) {
        hash = (hash ^ word) * 0x9E3779B97F4A7C15U;
        hash ^= hash >> 32;
    };
    for (; left > 8; left -= 8, bytes += 8) mix(WordAt(bytes, 8));
    if (text.size() >= 8) {
        mix(WordAt(text.data() + text.size() - 8, 8));
    } else if (left >= 4) {
        mix(WordAt(bytes, 4) | WordAt(bytes + left - 4, 4) << 32);
    } else if (left > 0) {
        mix(WordAt(bytes, 1) | WordAt(bytes + left / 2, 1) << 8 | WordAt(bytes + left - 1, 1) << 16);
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
    const uint32_t next = next_.load(std::memory_order_relaxed);
    uint32_t position = next + 1;
    if (next >= entries_.size() || entries_[next].key != key)
        position = slots_[SlotOf(key, HashOf(key))].position;
    if (position == 0) return nullptr;
    next_.store(position, std::memory_order_relaxed);
    return &entries_[position - 1];
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
    next_.store(0, std::memory_order_relaxed);
    // Emptied for every section: the slots of one huge section must not be swept again for each small one.
    if (slots_.size() > 4 * kFewestSlots) slots_.resize(kFewestSlots);
    std::fill(slots_.begin(), slots_.end(), Slot{});
}

}  // namespace vemo::platform
