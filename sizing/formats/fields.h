// Walking over the fields of a line.
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string_view>

#include "sizing/request.h"

namespace sizing {

// Each step takes something off the front of the line, or stays there and is false.
class Fields {
  public:
    explicit Fields(std::string_view line) noexcept
        : begin_(line.data()), at_(line.data()), end_(line.data() + line.size()) {}

    [[nodiscard]] bool IsAtEnd() const noexcept { return at_ == end_; }
    [[nodiscard]] std::size_t Position() const noexcept { return static_cast<std::size_t>(at_ - begin_); }
    [[nodiscard]] std::string_view Rest() const noexcept {
        return {at_, static_cast<std::size_t>(end_ - at_)};
    }

    bool Is(char character) noexcept {
        if (at_ == end_ || *at_ != character) {
            return false;
        }
        ++at_;
        return true;
    }
    bool Skip(std::size_t count) noexcept {
        at_ += count;
        return true;
    }
    bool Comma() noexcept { return Is(','); }

    // Any number of blanks: always true.
    bool Blanks() noexcept {
        while (at_ != end_ && (*at_ == ' ' || *at_ == '\t')) {
            ++at_;
        }
        return true;
    }

    // A decimal number below 2^64.
    [[gnu::always_inline]] bool Number(std::uint64_t& value) noexcept {
        if constexpr (std::endian::native == std::endian::little) {
            if (end_ - at_ >= 8) {
                return NumberByWords(value);
            }
        }
        return NumberByDigits(at_, 0, value);
    }

    // A number of units, which is made one of what `unit` counts.
    bool Scaled(std::uint64_t unit, std::uint64_t& value) noexcept {
        const char* const start = at_;
        if (!Number(value) || value > std::numeric_limits<std::uint64_t>::max() / unit) {
            at_ = start;
            return false;
        }
        value *= unit;
        return true;
    }

    // Seconds with or without decimals, as ns; finer ones are cut off.
    bool Seconds(std::uint64_t& ns) noexcept;

    // All up to the separator, which is taken too. Not empty.
    bool Until(char separator, std::string_view& text) noexcept {
        const char* end = at_;
        while (end != end_ && *end != separator) {
            ++end;
        }
        if (end == end_ || end == at_) {
            return false;
        }
        text = {at_, static_cast<std::size_t>(end - at_)};
        at_ = end + 1;
        return true;
    }

    // All up to the next blank or the end. Not empty.
    bool Word(std::string_view& text) noexcept {
        const char* const start = at_;
        while (at_ != end_ && *at_ != ' ' && *at_ != '\t') {
            ++at_;
        }
        text = {start, static_cast<std::size_t>(at_ - start)};
        return !text.empty();
    }

    // R or W, in either case.
    bool ReadOrWrite(Kind& kind) noexcept {
        const char letter = at_ == end_ ? '\0' : static_cast<char>(*at_ | 0x20);
        if (letter != 'r' && letter != 'w') {
            return false;
        }
        kind = letter == 'r' ? Kind::kRead : Kind::kWrite;
        ++at_;
        return true;
    }

  private:
    // Eight characters at once, as one word with the first in its lowest byte: numbers differ in length from
    // line to line, so that a loop over digits would be mispredicted at the end of each.
    [[gnu::always_inline]] bool NumberByWords(std::uint64_t& value) noexcept {
        const char* const start = at_;
        std::uint64_t sum = 0;
        while (end_ - at_ >= 8 && at_ - start < 16) {
            std::uint64_t word = 0;
            std::memcpy(&word, at_, sizeof word);
            word ^= 0x3030303030303030;  // each digit becomes its value
            // The top bit of each byte above 9; a carry spoils those behind the first such byte alone.
            const std::uint64_t others = ((word + 0x7676767676767676) | word) & 0x8080808080808080;
            if (others != 0) {
                const auto bits = static_cast<unsigned>(std::countr_zero(others)) & ~7U;
                at_ += bits / 8;
                // Shifted by two steps, as all 64 bits at once would be none; zeros come in front.
                value = sum * kPowers[bits / 8] + ValueOf((word << 8U) << (56 - bits));
                return at_ != start;
            }
            sum = sum * kPowers[8] + ValueOf(word);
            at_ += 8;
        }
        return NumberByDigits(start, sum, value);
    }

    // The rest of a number that began at `start`.
    bool NumberByDigits(const char* start, std::uint64_t sum, std::uint64_t& value) noexcept {
        for (; at_ != end_ && *at_ >= '0' && *at_ <= '9'; ++at_) {
            const auto digit = static_cast<std::uint64_t>(*at_ - '0');
            if (sum > (std::numeric_limits<std::uint64_t>::max() - digit) / 10) {
                at_ = start;
                return false;
            }
            sum = sum * 10 + digit;
        }
        value = sum;
        return at_ != start;
    }

    static constexpr std::uint64_t kPowers[] = {1,       10,        100,        1'000,      10'000,
                                                100'000, 1'000'000, 10'000'000, 100'000'000};

    // Of eight digits, by pairs, then fours, then all.
    static std::uint64_t ValueOf(std::uint64_t digits) noexcept {
        digits = digits * 10 + (digits >> 8U);
        return ((digits & 0x000000ff000000ff) * 0x000f424000000064 +
                ((digits >> 16U) & 0x000000ff000000ff) * 0x0000271000000001) >>
               32U;
    }

    const char* begin_;
    const char* at_;
    const char* end_;
};

inline bool Fields::Seconds(std::uint64_t& ns) noexcept {
    constexpr std::uint64_t kSecond = 1'000'000'000;
    const char* const start = at_;
    if (!Scaled(kSecond, ns)) {
        return false;
    }
    std::uint64_t fraction = 0;
    if (Is('.')) {
        std::uint64_t unit = kSecond;
        for (; at_ != end_ && *at_ >= '0' && *at_ <= '9'; ++at_) {
            unit /= 10;
            fraction += unit * static_cast<std::uint64_t>(*at_ - '0');
        }
    }
    if (fraction > std::numeric_limits<std::uint64_t>::max() - ns) {
        at_ = start;
        return false;
    }
    ns += fraction;
    return true;
}

inline constexpr std::uint64_t kSector = 512;  // bytes, whatever the device's own are

}  // namespace sizing
