#include "support/time.h"

#include <array>
#include <charconv>
#include <ctime>
#include <string_view>
#include <utility>

namespace cli {
namespace {

using std::chrono::seconds;
using std::chrono::system_clock;

struct DayTime {
    int hour = 0;
    int minute = 0;
};

std::optional<int> ParseTwoDigits(std::string_view text, int highest) {
    int number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const bool isWhole = text.size() == 2 && error == std::errc() && end == text.data() + text.size();
    return isWhole && number >= 0 && number <= highest ? std::optional(number) : std::nullopt;
}

std::optional<DayTime> ParseDayTime(std::string_view text) {
    if (text.size() != 5 || text[2] != ':') {
        return std::nullopt;
    }
    const auto hour = ParseTwoDigits(text.substr(0, 2), 23);
    const auto minute = ParseTwoDigits(text.substr(3), 59);
    return hour && minute ? std::optional(DayTime{*hour, *minute}) : std::nullopt;
}

// That time of the day which is `now`, so many days later.
std::time_t TimeOnDay(const DayTime& time, std::time_t now, int later) {
    std::tm local{};
    localtime_r(&now, &local);
    local.tm_mday += later;
    local.tm_hour = time.hour;
    local.tm_min = time.minute;
    local.tm_sec = 0;
    local.tm_isdst = -1;  // the clock may be put on or back before that
    return std::mktime(&local);
}

}  // namespace

std::optional<seconds> ParseSpan(const std::string& text) {
    constexpr std::array<std::pair<std::string_view, std::int64_t>, 5> kUnits = {
        {{"s", 1}, {"m", 60}, {"h", 3600}, {"d", 86400}, {"w", 604800}}};
    constexpr std::int64_t kLongest = std::int64_t{366} * 86400;
    const char* last = text.data() + text.size();
    std::int64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), last, number);
    for (const auto& [unit, length] : kUnits) {
        if (error == std::errc() && std::string_view(end, last) == unit && number > 0 &&
            number <= kLongest / length) {
            return seconds(number * length);
        }
    }
    return std::nullopt;
}

std::optional<seconds> SpanUntil(const std::string& text, system_clock::time_point now) {
    const auto time = ParseDayTime(text);
    if (!time) {
        return ParseSpan(text);
    }
    const std::time_t start = system_clock::to_time_t(now);
    const std::time_t today = TimeOnDay(*time, start, 0);
    return seconds((today > start ? today : TimeOnDay(*time, start, 1)) - start);
}

}  // namespace cli
