// What is reckoned from the kernel's numbers; nothing wherever one of them is missing.
#pragma once

#include <string_view>

#include "stats/fields.h"

namespace cli {

// How much the counter grew a second; nothing without a reading before.
Value RateOf(const Span& span, std::string_view counter);

Value ReadHits(const Span& span);
Value WriteHits(const Span& span);

// In percent of the requests that did not bypass the cache, rounded down to tenths: 100 is all of them.
// Nothing when there was none.
Value ReadHitPercent(const Span& span);
Value WriteHitPercent(const Span& span);
Value IntervalReadHitPercent(const Span& span);
Value IntervalWriteHitPercent(const Span& span);

Value CachedBytes(const Span& span);
Value CachedPercent(const Span& span);
Value DirtyBlockCount(const Span& span);
Value DirtyBytes(const Span& span);
Value DirtyPercent(const Span& span);

Value IntervalSeconds(const Span& span);
Value WriteBackRate(const Span& span);

// At the pace at which the dirty blocks became fewer between the readings; nothing when they did not.
Value SecondsToClean(const Span& span);

}  // namespace cli
