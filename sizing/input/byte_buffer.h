// A window that moves over the bytes of a trace.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "sizing/input/byte_source.h"

namespace sizing {

class ByteBuffer {
  public:
    static constexpr std::size_t kSize = std::size_t{64} << 10U;

    explicit ByteBuffer(std::unique_ptr<ByteSource> source);

    // What was read and not yet skipped. Valid until the next call of Fill.
    [[nodiscard]] std::string_view Bytes() const noexcept { return {data_.data() + begin_, end_ - begin_}; }
    [[nodiscard]] bool IsFull() const noexcept { return end_ - begin_ == data_.size(); }
    void Skip(std::size_t count) noexcept { begin_ += count; }

    // Reads on behind Bytes(). False when nothing came: it is full, or at the end.
    bool Fill();
    // Fills until there are `count` bytes, which may be no more than kSize. False when the end comes first.
    bool Have(std::size_t count);

    // Why the end came early; empty: it did not.
    [[nodiscard]] const std::string& Damage() const noexcept { return damage_; }

  private:
    std::unique_ptr<ByteSource> source_;
    std::vector<char> data_;
    std::size_t begin_ = 0;
    std::size_t end_ = 0;
    bool isAtEnd_ = false;
    std::string damage_;
};

}  // namespace sizing
