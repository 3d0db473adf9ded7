#include "stats/derived.h"

#include <algorithm>
#include <cmath>

namespace cli {
namespace {

using Count = std::optional<std::uint64_t>;

Value Known(const Count& count) {
    return count ? Value(*count) : Value();
}

// How a share of the requests is reckoned.
struct Share {
    const char* requests;
    const char* bypassed;
    const char* hits;
    const char* moreHits;  // nullptr: none
};

constexpr Share kReadShare = {"reads", "uncached_sequential_reads", "read_hits", nullptr};
constexpr Share kWriteShare = {"writes", "uncached_sequential_writes", "write_hits", "write_miss_ssd"};

Count Total(const Span& span, std::string_view counter) {
    return NumberOf(span.now.counters, counter);
}

Count Growth(const Span& span, std::string_view counter) {
    if (span.before == nullptr) {
        return std::nullopt;
    }
    const Count before = NumberOf(span.before->counters, counter);
    const Count now = NumberOf(span.now.counters, counter);
    return before && now && *now >= *before ? Count(*now - *before) : std::nullopt;
}

// The kernel counts a hit and its request in two steps: a moment's hits may be ahead of their requests.
Value CappedAt(const Count& part, const Count& whole) {
    return part && whole ? Value(std::min(*part, *whole)) : Known(part);
}

template <typename CountOf>
Value PercentOf(const Share& share, CountOf countOf) {
    const Count requests = countOf(share.requests);
    const Count bypassed = countOf(share.bypassed);
    const Count hits = countOf(share.hits);
    const Count moreHits = share.moreHits == nullptr ? Count(0) : countOf(share.moreHits);
    if (!requests || !bypassed || !hits || !moreHits || *requests <= *bypassed) {
        return {};
    }
    const auto whole = static_cast<double>(*requests - *bypassed);
    const auto part = std::min(static_cast<double>(*hits) + static_cast<double>(*moreHits), whole);
    return std::floor(part * 1000 / whole) / 10;
}

Value SharePercent(const Span& span, const Share& share) {
    return PercentOf(share, [&](const char* counter) { return Total(span, counter); });
}

Value IntervalPercent(const Span& span, const Share& share) {
    return PercentOf(share, [&](const char* counter) { return Growth(span, counter); });
}

std::optional<double> Seconds(const Span& span) {
    if (span.before == nullptr) {
        return std::nullopt;
    }
    const std::chrono::duration<double> time = span.now.time - span.before->time;
    return time.count() > 0 ? std::optional(time.count()) : std::nullopt;
}

double Tenths(double number) {
    return std::round(number * 10) / 10;
}

Value PartOf(const Count& part, const Count& whole) {
    return part && whole ? PercentValue(*part, *whole) : Value();
}

}  // namespace

Value RateOf(const Span& span, std::string_view counter) {
    const Count growth = Growth(span, counter);
    const auto seconds = Seconds(span);
    return growth && seconds ? Value(Tenths(static_cast<double>(*growth) / *seconds)) : Value();
}

Value ReadHits(const Span& span) {
    return CappedAt(Total(span, "read_hits"), Total(span, "reads"));
}

Value WriteHits(const Span& span) {
    return CappedAt(Total(span, "write_hits"), Total(span, "writes"));
}

Value ReadHitPercent(const Span& span) {
    return SharePercent(span, kReadShare);
}

Value WriteHitPercent(const Span& span) {
    return SharePercent(span, kWriteShare);
}

Value IntervalReadHitPercent(const Span& span) {
    return IntervalPercent(span, kReadShare);
}

Value IntervalWriteHitPercent(const Span& span) {
    return IntervalPercent(span, kWriteShare);
}

Value CachedBytes(const Span& span) {
    return BytesOf(span.now.cachedBlocks, span.now.blockSize);
}

Value CachedPercent(const Span& span) {
    return PartOf(span.now.cachedBlocks, span.now.totalBlocks);
}

Value DirtyBlockCount(const Span& span) {
    return Known(span.now.dirtyBlocks);
}

Value DirtyBytes(const Span& span) {
    return BytesOf(span.now.dirtyBlocks, span.now.blockSize);
}

Value DirtyPercent(const Span& span) {
    return PartOf(span.now.dirtyBlocks, span.now.totalBlocks);
}

Value IntervalSeconds(const Span& span) {
    const auto seconds = Seconds(span);
    return seconds ? Value(std::round(*seconds * 1000) / 1000) : Value();
}

Value WriteBackRate(const Span& span) {
    const Count cleaned = Growth(span, "cleanings");
    const auto seconds = Seconds(span);
    if (!cleaned || !seconds || span.now.blockSize == 0) {
        return {};
    }
    const double bytes = static_cast<double>(*cleaned) * static_cast<double>(span.now.blockSize);
    return static_cast<std::uint64_t>(bytes / *seconds);
}

Value SecondsToClean(const Span& span) {
    const Count now = span.now.dirtyBlocks;
    if (!now || *now == 0) {
        return Known(now);
    }
    const auto seconds = Seconds(span);
    const Count before = seconds ? span.before->dirtyBlocks : std::nullopt;
    if (!before || *before <= *now) {
        return {};
    }
    const double pace = static_cast<double>(*before - *now) / *seconds;
    return static_cast<std::uint64_t>(std::ceil(static_cast<double>(*now) / pace));
}

}  // namespace cli
