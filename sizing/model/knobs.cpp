#include "sizing/model/knobs.h"

#include <charconv>

namespace sizing {

std::optional<std::int32_t> ParseKnobValue(Knob knob, std::string_view text) {
    constexpr std::string_view kBlank(" \t\n\0", 4);
    const std::size_t first = text.find_first_not_of(kBlank);
    if (first == std::string_view::npos) {
        return std::nullopt;
    }
    text = text.substr(first, text.find_last_not_of(kBlank) + 1 - first);
    std::int32_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    const bool isNumber = error == std::errc() && end == text.data() + text.size();
    const KnobInfo& info = kKnobs[static_cast<std::size_t>(knob)];
    return isNumber && value >= info.least && value <= info.most ? std::optional(value) : std::nullopt;
}

}  // namespace sizing
