#include "sizing/input/byte_buffer.h"

#include <cstring>

#include "sizing/failure.h"

namespace sizing {

ByteBuffer::ByteBuffer(std::unique_ptr<ByteSource> source) : source_(std::move(source)), data_(kSize) {}

bool ByteBuffer::Fill() {
    if (isAtEnd_ || IsFull()) {
        return false;
    }
    if (begin_ > 0) {
        std::memmove(data_.data(), data_.data() + begin_, end_ - begin_);
        end_ -= begin_;
        begin_ = 0;
    }
    std::size_t count = 0;
    try {
        count = source_->Read(data_.data() + end_, data_.size() - end_);
    } catch (const Failure& failure) {
        damage_ = failure.why;  // what came before it is worth reading
    }
    isAtEnd_ = count == 0;
    end_ += count;
    return count > 0;
}

bool ByteBuffer::Have(std::size_t count) {
    while (end_ - begin_ < count) {
        if (!Fill()) {
            return false;
        }
    }
    return true;
}

}  // namespace sizing
