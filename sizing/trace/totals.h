// What a trace adds up to.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <limits>

#include "sizing/request.h"

namespace sizing {

// No request that a device is really given is longer. What is longer counts, for caches, by its first bytes
// alone: else a damaged length would stand for millions of blocks.
inline constexpr std::uint64_t kLongestRequest = std::uint64_t{64} << 20U;

// Whether a cache holds what such requests are for.
constexpr bool IsCached(Kind kind) noexcept {
    return kind == Kind::kRead || kind == Kind::kWrite;
}

struct KindTotals {
    std::uint64_t requests = 0;
    std::uint64_t bytes = 0;  // as the trace tells; at most 2^64 - 1
    std::uint64_t empty = 0;  // of the requests those of 0 bytes
    std::uint64_t cut = 0;    // of the reads and writes those over kLongestRequest
};

struct Totals {
    std::array<KindTotals, kKinds> kinds;
    std::uint64_t firstTime = std::numeric_limits<std::uint64_t>::max();  // ns
    std::uint64_t lastTime = 0;

    void Add(const Request& request) noexcept {
        KindTotals& kind = kinds[static_cast<std::size_t>(request.kind)];
        ++kind.requests;
        kind.bytes += std::min(request.length, std::numeric_limits<std::uint64_t>::max() - kind.bytes);
        kind.empty += request.length == 0 ? 1 : 0;
        kind.cut += IsCached(request.kind) && request.length > kLongestRequest ? 1 : 0;
        firstTime = std::min(firstTime, request.time);
        lastTime = std::max(lastTime, request.time);
    }
    [[nodiscard]] const KindTotals& Of(Kind kind) const noexcept {
        return kinds[static_cast<std::size_t>(kind)];
    }
};

}  // namespace sizing
