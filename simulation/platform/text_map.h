// A map from texts to texts that keeps the order in which they came.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <utility>
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
    // The entry of `key`, null when there is none; lives until the next insertion.
    const Entry* Find(std::string_view key) const;
    Entry* Find(std::string_view key) { return const_cast<Entry*>(std::as_const(*this).Find(key)); }
    // `key` must not be in the map. Changes nothing when an allocation fails.
    void Insert(std::string_view key, std::string_view value);
    void Clear();

  private:
    // Open addressing, never more than half full; position 0 is a free slot, n stands for the entry n - 1.
    struct Slot {
        uint32_t hash = 0;
        uint32_t position = 0;
    };
    void Place(Slot slot);
    void Rebuild(size_t slotCount);

    std::vector<Entry> entries_;
    std::vector<Slot> slots_;
};

}  // namespace vemo::platform
