// A map from texts to texts that keeps the order in which they came.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace vemo::platform {

// Keys and values are views: their bytes belong to the map's owner.
class TextMap {
  public:
    struct Entry {
        std::string_view key;
        std::string_view value;
    };

    const std::vector<Entry>& Entries() const { return entries_; }
    // The entry of `key`, null when there is none; good until the next insertion.
    const Entry* Find(std::string_view key) const;
    // False, and nothing changed, when the key is there; nothing changed either when an allocation fails.
    bool Insert(std::string_view key, std::string_view value);
    void Replace(const Entry& entry, std::string_view value) { entries_[IndexOf(entry)].value = value; }
    size_t IndexOf(const Entry& entry) const { return static_cast<size_t>(&entry - entries_.data()); }
    void Clear();

  private:
    // Open addressing, never more than half full; position 0 is a free slot, n stands for the entry n - 1.
    struct Slot {
        uint32_t hash = 0;
        uint32_t position = 0;
    };
    // The slot of `key`, or the free one where it belongs.
    size_t SlotOf(std::string_view key, uint32_t hash) const;
    void Grow();

    std::vector<Entry> entries_;
    std::vector<Slot> slots_;
    // After the entry that was found last: keys are mostly asked for in the order in which they came. A guess
    // only, and so open to readers on several threads.
    mutable std::atomic<uint32_t> next_ = 0;
};

}  // namespace vemo::platform
