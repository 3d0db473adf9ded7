#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace sizing {

// Recognises sequential streams among the last few that were seen.
class SequenceTracker {
  public:
    // Takes note of a request; true when it continues a stream that is by now longer than `threshold` bytes.
    //  A threshold of 0 recognises nothing.
    bool IsLongStream(uint64_t offset, uint64_t length, uint64_t threshold) {
        for (Stream& stream : streams_) {
            if (stream.next == offset && stream.length > 0) {
                stream.next += length;
                stream.length += length;
                return threshold > 0 && stream.length > threshold;
            }
        }
        streams_[oldest_] = {offset + length, length};
        oldest_ = (oldest_ + 1) % streams_.size();
        return threshold > 0 && length > threshold;
    }

  private:
    struct Stream {
        uint64_t next = 0;
        uint64_t length = 0;
    };
    std::array<Stream, 8> streams_{};
    size_t oldest_ = 0;
};

}  // namespace sizing
