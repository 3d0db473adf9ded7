#include "sizing/curve/block_table.h"

namespace sizing {

void BlockTable::Grow() {
    std::vector<Entry> old(entries_.size() * 2);
    old.swap(entries_);
    for (const Entry& entry : old) {
        if (entry.key != 0) {
            *Probe(entry.key) = entry;
        }
    }
}

BlockTable::Entry BlockTable::Remove(std::uint64_t key) {
    key += key == 0 ? 1 : 0;
    Entry* const found = Probe(key);
    const Entry removed = *found;
    const std::size_t mask = entries_.size() - 1;
    auto hole = static_cast<std::size_t>(found - entries_.data());
    // Moves back what lies behind and would not be found any more over the hole.
    for (std::size_t slot = (hole + 1) & mask; entries_[slot].key != 0; slot = (slot + 1) & mask) {
        const std::size_t fromHome = (slot - Home(entries_[slot].key)) & mask;
        if (fromHome >= ((slot - hole) & mask)) {
            entries_[hole] = entries_[slot];
            hole = slot;
        }
    }
    entries_[hole] = {};
    --count_;
    return removed;
}

}  // namespace sizing
