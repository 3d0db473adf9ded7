// A request of a trace, whatever format told it.
#pragma once

#include <cstddef>
#include <cstdint>

namespace sizing {

enum class Kind : std::uint8_t { kRead, kWrite, kDiscard, kFlush };
inline constexpr std::size_t kKinds = 4;

// The end of a request, offset + length, is always below 2^64.
struct Request {
    std::uint64_t time = 0;    // ns, from a start of the trace's own
    std::uint64_t volume = 0;  // the key of its name: VolumeNames
    std::uint64_t offset = 0;  // bytes
    std::uint64_t length = 0;  // bytes; may be 0, even of a read
    Kind kind = Kind::kRead;
};

}  // namespace sizing
