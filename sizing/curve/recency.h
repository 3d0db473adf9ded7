// Which blocks were used after which.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace sizing {

// Order statistics over time: the last use of each block is a bit in a row, in the order of time, and a tree
// of partial sums (Fenwick) over lines of 512 bits counts them. A count costs one walk up the tree and a few
// words of one line; the tree has but 4 bytes for 512 uses, so that it stays in the processor's cache.
class Recency {
  public:
    using Use = std::uint32_t;  // its place in time
    static constexpr std::uint64_t kMostUses = std::uint64_t{1} << 32U;

    explicit Recency(std::size_t uses);

    [[nodiscard]] bool IsFull() const noexcept { return next_ == lines_.size() * kLineBits; }
    // Notes a use, as the latest one; not when full.
    Use Add() noexcept;
    void Remove(Use use) noexcept;

    // How many noted uses are earlier, and how many are later, than one that is noted.
    [[nodiscard]] std::uint64_t EarlierThan(Use use) const noexcept;
    [[nodiscard]] std::uint64_t LaterThan(Use use) const noexcept { return count_ - EarlierThan(use) - 1; }
    [[nodiscard]] std::uint64_t Count() const noexcept { return count_; }

    // A row that holds as many uses, but without gaps, and has room for more.
    [[nodiscard]] Recency Compacted() const;

  private:
    static constexpr std::size_t kWordBits = 64;
    static constexpr std::size_t kLineWords = 8;
    static constexpr std::size_t kLineBits = kWordBits * kLineWords;
    struct alignas(64) Line {
        std::uint64_t words[kLineWords] = {};
    };

    // The last line, still being written, is not in the tree yet.
    [[nodiscard]] std::size_t OpenLine() const noexcept { return next_ / kLineBits; }
    void AddToTree(std::size_t line, std::int32_t change) noexcept;
    [[nodiscard]] std::uint64_t BitsOf(const Line& line) const noexcept;

    std::vector<Line> lines_;
    std::vector<std::int32_t> sums_;
    std::uint64_t next_ = 0;
    std::uint64_t count_ = 0;
};

}  // namespace sizing
