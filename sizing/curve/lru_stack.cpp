#include "sizing/curve/lru_stack.h"

namespace sizing {

void LruStack::Compact() {
    table_.ForEach([&](BlockTable::Entry& block) {
        block.use = static_cast<Recency::Use>(recency_.EarlierThan(block.use));
    });
    recency_ = recency_.Compacted();
}

}  // namespace sizing
