// What is known of each block.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "sizing/curve/recency.h"

namespace sizing {

// A hash table with open addressing and linear probing. The keys are hashes themselves.
class BlockTable {
  public:
    struct Entry {
        std::uint64_t key = 0;  // 0: free
        Recency::Use use = 0;
        std::uint32_t touches = 0;
    };

    explicit BlockTable(std::size_t slots) : entries_(slots) {}  // a power of two

    // The entry of a key, which is made when there is none. Valid until the next call.
    Entry& Find(std::uint64_t key) {
        key += key == 0 ? 1 : 0;
        Entry* entry = Probe(key);
        if (entry->key != key) {
            if ((count_ + 1) * 4 > entries_.size() * 3) {
                Grow();
                entry = Probe(key);
            }
            entry->key = key;
            ++count_;
        }
        return *entry;
    }

    // Removes a key that is there. What it was of.
    Entry Remove(std::uint64_t key);

    [[nodiscard]] std::size_t Count() const noexcept { return count_; }

    template <class Visit>
    void ForEach(const Visit& visit) {
        for (Entry& entry : entries_) {
            if (entry.key != 0) {
                visit(entry);
            }
        }
    }

  private:
    [[nodiscard]] std::size_t Home(std::uint64_t key) const noexcept { return key & (entries_.size() - 1); }
    Entry* Probe(std::uint64_t key) noexcept {
        std::size_t slot = Home(key);
        while (entries_[slot].key != 0 && entries_[slot].key != key) {
            slot = (slot + 1) & (entries_.size() - 1);
        }
        return &entries_[slot];
    }
    void Grow();

    std::vector<Entry> entries_;
    std::size_t count_ = 0;
};

}  // namespace sizing
