#pragma once

#include <array>
#include <cstdint>

namespace sizing {

// Recognises sequential streams among the last few that were seen.
class SequenceTracker {
  public:
    // Takes note of a request; true when it continues a stream that is by now longer than `threshold` bytes.
    //  A threshold of 0 recognises nothing.
    bool IsLongStream(std::uint64_t offset, std::uint64_t length, std::uint64_t threshold) {
        ++clock_;
        Stream* longestAgo = &streams_.front();
        for (Stream& stream : streams_) {
            if (stream.next == offset && stream.length > 0) {
                stream = {offset + length, stream.length + length, clock_};
                return threshold > 0 && stream.length > threshold;
            }
            longestAgo = stream.lastSeen < longestAgo->lastSeen ? &stream : longestAgo;
        }
        *longestAgo = {offset + length, length, clock_};
        return threshold > 0 && length > threshold;
    }

  private:
    struct Stream {
        std::uint64_t next = 0;
        std::uint64_t length = 0;
        std::uint64_t lastSeen = 0;
    };
    std::array<Stream, 8> streams_{};
    std::uint64_t clock_ = 0;
};

}  // namespace sizing
