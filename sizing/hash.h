// Keys of volumes and blocks. The same trace has the same keys, and so the same sample, everywhere.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace sizing {

// A bijection of which each bit of the result hangs on every bit given: two rounds of shift and multiply.
inline std::uint64_t Mix(std::uint64_t word) noexcept {
    word = (word ^ (word >> 33U)) * 0xff51afd7ed558ccdU;
    word = (word ^ (word >> 33U)) * 0xc4ceb9fe1a85ec53U;
    return word ^ (word >> 33U);
}

inline constexpr std::uint64_t kSpread =
    0x9e3779b97f4a7c15U;  // odd: a product with it is a bijection as well

// The key of a block. Two blocks of one volume never share a key, two of different ones once in 2^64 pairs.
inline std::uint64_t BlockKey(std::uint64_t volume, std::uint64_t block) noexcept {
    return Mix((block * kSpread) ^ volume);
}

// Up to seven bytes as one word. Loads overlap, for a copy of a length that varies is slow.
inline std::uint64_t ShortWord(std::string_view text) noexcept {
    const auto byte = [&](std::size_t at) { return std::uint64_t{static_cast<unsigned char>(text[at])}; };
    const std::size_t size = text.size();
    if (size >= 4) {
        std::uint32_t front = 0;
        std::uint32_t back = 0;
        std::memcpy(&front, text.data(), sizeof front);
        std::memcpy(&back, text.data() + size - sizeof back, sizeof back);
        return front | (std::uint64_t{back} << 32U);
    }
    return size == 0 ? 0 : byte(0) | (byte(size / 2) << 8U) | (byte(size - 1) << 16U);
}

inline std::uint64_t TextKey(std::string_view text) noexcept {
    std::uint64_t key = text.size() * kSpread;  // far from what the few letters of a short text make
    std::uint64_t word = 0;
    for (; text.size() >= sizeof word; text.remove_prefix(sizeof word)) {
        std::memcpy(&word, text.data(), sizeof word);
        key = Mix(key ^ word);
    }
    return Mix(key ^ ShortWord(text));
}

}  // namespace sizing
