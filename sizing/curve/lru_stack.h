// The blocks in the order in which LRU holds them.
#pragma once

#include <cstdint>
#include <limits>

#include "sizing/curve/block_table.h"
#include "sizing/curve/recency.h"

namespace sizing {

// Tells reuse distances: a hash table knows when each block was used last, order statistics how many blocks
// were used since. A reference costs a look-up and two walks of a tree, whatever the distance.
class LruStack {
  public:
    // Memory is set aside for so many blocks, a power of two, and grows with more.
    explicit LruStack(std::size_t blocks) : table_(2 * blocks), recency_(8 * blocks) {}

    struct Touched {
        std::uint32_t touches = 0;   // of that block up to now; the first has no reuse distance
        std::uint64_t distance = 0;  // the reuse distance
    };

    // Touches a block, which may be a new one.
    Touched Touch(std::uint64_t key) {
        if (recency_.IsFull()) {
            Compact();
        }
        BlockTable::Entry& block = table_.Find(key);
        Touched touched;
        if (block.touches > 0) {
            touched.distance = recency_.LaterThan(block.use);
            recency_.Remove(block.use);
            reused_ += block.touches == 1 ? 1 : 0;
        }
        block.touches += block.touches < std::numeric_limits<std::uint32_t>::max() ? 1 : 0;
        block.use = recency_.Add();
        touched.touches = block.touches;
        return touched;
    }

    // Drops a block that is there.
    void Drop(std::uint64_t key) {
        const BlockTable::Entry block = table_.Remove(key);
        recency_.Remove(block.use);
        reused_ -= block.touches > 1 ? 1 : 0;
    }

    [[nodiscard]] std::uint64_t Blocks() const noexcept { return table_.Count(); }
    // Those of them that were touched more than once.
    [[nodiscard]] std::uint64_t Reused() const noexcept { return reused_; }

  private:
    void Compact();

    BlockTable table_;
    Recency recency_;
    std::uint64_t reused_ = 0;
};

}  // namespace sizing
