// The blocks that are simulated.
#pragma once

#include <cstdint>
#include <optional>

#include "sizing/hash.h"

namespace sizing {

// One of each so many neighbours, chosen by chance: spatial sampling, but stratified, so that each stretch of
// a volume is in the sample by its share. Numbered anew without gaps, they are to a cache of as much fewer
// slots what all blocks are to the whole one: its sets have as many slots, and as many blocks want to lie in
// each.
class BlockSample {
  public:
    BlockSample(std::uint64_t neighbours, std::uint64_t seed) : neighbours_(neighbours), seed_(Mix(seed)) {}

    [[nodiscard]] std::uint64_t Neighbours() const noexcept { return neighbours_; }
    [[nodiscard]] bool IsAll() const noexcept { return neighbours_ == 1; }

    // The number of a block in the sample; nothing where it is not in it.
    [[nodiscard]] std::optional<std::uint64_t> Find(std::uint64_t block) const noexcept {
        const std::uint64_t number = block / neighbours_;
        return BlockOf(number) == block ? std::optional(number) : std::nullopt;
    }
    // The other way round.
    [[nodiscard]] std::uint64_t BlockOf(std::uint64_t number) const noexcept {
        return number * neighbours_ + (IsAll() ? 0 : Mix(number * kSpread ^ seed_) % neighbours_);
    }

  private:
    std::uint64_t neighbours_;
    std::uint64_t seed_;
};

}  // namespace sizing
