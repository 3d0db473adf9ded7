#include "output/filter.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <charconv>
#include <optional>
#include <string_view>
#include <type_traits>

#include "support/failure.h"

namespace cli {
namespace {

using Test = Filter::Test;

constexpr std::string_view kSigns = "!<>=";
constexpr std::string_view kUnknown = "null";

// The sign that a filter's text has between key and value.
std::string_view SignIn(std::string_view text) {
    const auto begin = text.find_first_of(kSigns);
    if (begin == std::string_view::npos) {
        return {};
    }
    const std::string_view rest = text.substr(begin);
    return rest.substr(0, rest.size() > 1 && rest[1] == '=' ? 2 : 1);
}

std::optional<Test> TestOf(std::string_view sign) {
    constexpr std::pair<std::string_view, Test> kTests[] = {
        {"=", Test::kEqual},   {"==", Test::kEqual},  {"!=", Test::kUnequal}, {"<", Test::kLess},
        {">", Test::kGreater}, {"<=", Test::kAtMost}, {">=", Test::kAtLeast}};
    for (const auto& [text, test] : kTests) {
        if (sign == text) {
            return test;
        }
    }
    return std::nullopt;
}

Failure Refused(const Field& field, const std::string& why) {
    return {"wrong usage", fmt::format("--filter: {} {}", field.key, why), "vemocachectl --help",
            std::nullopt, FailureKind::kUsage};
}

template <typename Known>
bool Holds(const Known& known, Test test, const Known& value) {
    switch (test) {
        case Test::kEqual:
            return known == value;
        case Test::kUnequal:
            return known != value;
        case Test::kLess:
            return known < value;
        case Test::kGreater:
            return known > value;
        case Test::kAtMost:
            return known <= value;
        case Test::kAtLeast:
            break;
    }
    return known >= value;
}

// What a unit behind a number of the field's kind makes of it: "100M", "20%", "5s".
std::optional<long double> FactorOf(std::string_view unit, Format format) {
    if (unit.empty() || (unit == "%" && format == Format::kPercent) ||
        (unit == "s" && format == Format::kSeconds)) {
        return 1;
    }
    constexpr std::string_view kUnits = "KMGTP";
    const auto power = kUnits.find(unit.front());
    const std::string_view rest = unit.substr(1);
    const bool isSize = power != std::string_view::npos && (rest.empty() || rest == "B" || rest == "iB");
    if (format != Format::kBytes || !isSize) {
        return std::nullopt;
    }
    return static_cast<long double>(std::uint64_t{1024} << (10 * power));
}

long double NumberIn(const Filter& filter, const Field& field) {
    long double number = 0;
    const std::string& text = filter.value;
    const char* last = text.data() + text.size();
    const auto [end, error] = std::from_chars(text.data(), last, number);
    const auto factor = FactorOf({end, static_cast<std::size_t>(last - end)}, field.format);
    if (error != std::errc() || !factor) {
        throw Refused(field, fmt::format("is a number, and \"{}\" is none", text));
    }
    return number * *factor;
}

bool FlagIn(const Filter& filter, const Field& field) {
    const bool isYes = filter.value == "true" || filter.value == "yes";
    if (!isYes && filter.value != "false" && filter.value != "no") {
        throw Refused(field, fmt::format("is true or false, and not \"{}\"", filter.value));
    }
    return isYes;
}

void RequireEquality(const Filter& filter, const Field& field) {
    if (filter.test != Test::kEqual && filter.test != Test::kUnequal) {
        throw Refused(field, "is no number here: only = and != tell something of it");
    }
}

}  // namespace

std::string WhyNoFilter(const std::string& text) {
    const auto sign = SignIn(text);
    return TestOf(sign) && sign.data() != text.data()
               ? ""
               : fmt::format("\"{}\" is not of the form FIELD=VALUE, or with != < > <= >= between", text);
}

Filter FilterOf(const std::string& text) {
    const auto sign = SignIn(text);
    const auto begin = static_cast<std::size_t>(sign.data() - text.data());
    return {text.substr(0, begin), TestOf(sign).value_or(Test::kEqual), text.substr(begin + sign.size())};
}

bool Passes(const Field& field, const Filter& filter) {
    if (filter.value == kUnknown) {
        RequireEquality(filter, field);
        return IsUnknown(field) == (filter.test == Test::kEqual);
    }
    return std::visit(
        [&](const auto& known) {
            using Known = std::decay_t<decltype(known)>;
            if constexpr (std::is_same_v<Known, std::monostate>) {
                return filter.test == Test::kUnequal;
            } else if constexpr (std::is_same_v<Known, bool>) {
                RequireEquality(filter, field);
                return Holds(known, filter.test, FlagIn(filter, field));
            } else if constexpr (std::is_same_v<Known, std::string>) {
                RequireEquality(filter, field);
                // A device goes by its path, and by what a table shows of it.
                const bool isIt = known == filter.value || ToCell(field) == filter.value;
                return isIt == (filter.test == Test::kEqual);
            } else if constexpr (std::is_same_v<Known, Texts>) {
                RequireEquality(filter, field);
                const bool isAmong = std::find(known.begin(), known.end(), filter.value) != known.end();
                return isAmong == (filter.test == Test::kEqual);
            } else if constexpr (std::is_same_v<Known, TextLists>) {
                RequireEquality(filter, field);
                const bool isAmong = std::any_of(known.begin(), known.end(), [&](const Texts& texts) {
                    return fmt::format("{}", fmt::join(texts, " ")) == filter.value;
                });
                return isAmong == (filter.test == Test::kEqual);
            } else {
                return Holds(static_cast<long double>(known), filter.test, NumberIn(filter, field));
            }
        },
        field.value);
}

}  // namespace cli
