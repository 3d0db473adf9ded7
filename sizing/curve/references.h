// A request as references to cache blocks.
#pragma once

#include <algorithm>
#include <bit>
#include <cstdint>

#include "sizing/failure.h"
#include "sizing/hash.h"
#include "sizing/request.h"
#include "sizing/trace/totals.h"

namespace sizing {

// Of a cache: a power of two from 512 bytes on.
class BlockSize {
  public:
    explicit BlockSize(std::uint64_t bytes) : shift_(static_cast<unsigned>(std::countr_zero(bytes))) {
        if (!std::has_single_bit(bytes) || bytes < 512 || bytes > kLongestRequest) {
            throw Failure("a cache cannot have blocks of " + std::to_string(bytes) + " bytes",
                          "the size of a block is a power of two from 512 to 67108864", "");
        }
    }
    [[nodiscard]] std::uint64_t Bytes() const noexcept { return std::uint64_t{1} << shift_; }
    [[nodiscard]] unsigned Shift() const noexcept { return shift_; }

  private:
    unsigned shift_;
};

// Calls visit(key) for each block that a read or write touches, from its first one on: a block that is
// touched in part counts as well. Discards and flushes touch none: they change what a cache holds, not what
// is asked of it.
template <class Visit>
void ForEachBlock(const Request& request, BlockSize size, const Visit& visit) {
    if (!IsCached(request.kind) || request.length == 0) {
        return;
    }
    const std::uint64_t length = std::min(request.length, kLongestRequest);
    const std::uint64_t last = (request.offset + (length - 1)) >> size.Shift();
    for (std::uint64_t block = request.offset >> size.Shift(); block <= last; ++block) {
        visit(BlockKey(request.volume, block));
    }
}

}  // namespace sizing
