// Times as admins type them.
#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace cli {

// "90s", "30m", "12h", "7d" or "4w": a number and a unit, a year at most. Nothing for other texts.
std::optional<std::chrono::seconds> ParseSpan(const std::string& text);

// How long it is from `now` to a span of time ("2h") or the next time of the day that reads so ("06:00", in
// local time). Nothing for other texts.
std::optional<std::chrono::seconds> SpanUntil(const std::string& text,
                                              std::chrono::system_clock::time_point now);

}  // namespace cli
