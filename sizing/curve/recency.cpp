#include "sizing/curve/recency.h"

#include <algorithm>

namespace sizing {
namespace {

constexpr std::uint64_t kOne = 1;

// By pairs, fours and bytes: not every processor that this runs on has an instruction for it.
inline std::uint64_t CountBits(std::uint64_t word) noexcept {
    word -= (word >> 1U) & 0x5555555555555555U;
    word = (word & 0x3333333333333333U) + ((word >> 2U) & 0x3333333333333333U);
    word = (word + (word >> 4U)) & 0x0f0f0f0f0f0f0f0fU;
    return (word * 0x0101010101010101U) >> 56U;
}

}  // namespace

Recency::Recency(std::size_t uses) : lines_((uses + kLineBits - 1) / kLineBits), sums_(lines_.size() + 1) {}

void Recency::AddToTree(std::size_t line, std::int32_t change) noexcept {
    for (std::size_t node = line + 1; node < sums_.size(); node += node & (~node + 1)) {
        sums_[node] += change;
    }
}

std::uint64_t Recency::BitsOf(const Line& line) const noexcept {
    std::uint64_t bits = 0;
    for (const std::uint64_t word : line.words) {
        bits += CountBits(word);
    }
    return bits;
}

Recency::Use Recency::Add() noexcept {
    const auto use = static_cast<Use>(next_);
    lines_[use / kLineBits].words[use / kWordBits % kLineWords] |= kOne << (use % kWordBits);
    ++next_;
    ++count_;
    if (next_ % kLineBits == 0) {
        const std::size_t closed = OpenLine() - 1;
        AddToTree(closed, static_cast<std::int32_t>(BitsOf(lines_[closed])));
    }
    return use;
}

void Recency::Remove(Use use) noexcept {
    const std::size_t line = use / kLineBits;
    lines_[line].words[use / kWordBits % kLineWords] &= ~(kOne << (use % kWordBits));
    --count_;
    if (line != OpenLine()) {
        AddToTree(line, -1);
    }
}

std::uint64_t Recency::EarlierThan(Use use) const noexcept {
    std::uint64_t earlier = 0;
    for (std::size_t node = use / kLineBits; node > 0; node &= node - 1) {
        earlier += static_cast<std::uint64_t>(sums_[node]);
    }
    const Line& line = lines_[use / kLineBits];
    const std::size_t last = use / kWordBits % kLineWords;
    for (std::size_t word = 0; word < last; ++word) {
        earlier += CountBits(line.words[word]);
    }
    return earlier + CountBits(line.words[last] & ((kOne << (use % kWordBits)) - 1));
}

Recency Recency::Compacted() const {
    // Three times as much room again keeps the cost of doing this often at a constant for each use.
    Recency compacted(std::min(kMostUses, std::max(lines_.size() * kLineBits, 4 * count_)));
    while (compacted.count_ < count_) {
        compacted.Add();
    }
    return compacted;
}

}  // namespace sizing
