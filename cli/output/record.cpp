#include "output/record.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <type_traits>

namespace cli {
namespace {

// A percentage as a bar of at most thirty columns; what is there at all shows.
std::string Bar(double percent) {
    constexpr std::size_t kColumns = 30;
    const auto columns = static_cast<std::size_t>(std::ceil(percent * kColumns / 100));
    return std::string(std::min(columns, kColumns), '#');
}

template <typename Number>
std::string NumberText(Number number, Format format) {
    switch (format) {
        case Format::kBytes:
            return HumanSize(static_cast<std::uint64_t>(number));
        case Format::kPercent:
            return fmt::format("{}%", number);
        case Format::kBar:
            return Bar(static_cast<double>(number));
        case Format::kSeconds:
            return fmt::format("{} s", number);
        case Format::kPlain:
        case Format::kNumber:
        case Format::kDevice:
        case Format::kSentence:
        case Format::kParts:
            break;
    }
    return fmt::format("{}", number);
}

std::string ListsText(const TextLists& lists) {
    std::string text;
    for (const auto& list : lists) {
        text += fmt::format("{}{}", text.empty() ? "" : "; ", fmt::join(list, " "));
    }
    return text.empty() ? "-" : Printable(text);
}

std::string PartsText(const std::vector<Field>& parts, bool exactBytes) {
    Texts texts;
    texts.reserve(parts.size());
    for (const auto& part : parts) {
        texts.push_back(fmt::format("{} {}", part.key, ToText(part, exactBytes)));
    }
    return fmt::format("{}", fmt::join(texts, ", "));
}

}  // namespace

Value PercentValue(std::uint64_t part, std::uint64_t whole) {
    if (whole == 0) {
        return {};
    }
    const double percent = static_cast<double>(part) * 100 / static_cast<double>(whole);
    return part == 0 ? 0.0 : std::max(std::floor(percent * 10) / 10, 0.1);
}

std::string HumanSize(std::uint64_t bytes) {
    constexpr std::array kUnits = {"KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
    if (bytes < 1024) {
        return fmt::format("{} B", bytes);
    }
    double size = static_cast<double>(bytes) / 1024;
    std::size_t unit = 0;
    // 1023.95 would be rounded up to 1024.0
    while (size >= 1023.95 && unit + 1 < kUnits.size()) {
        size /= 1024;
        ++unit;
    }
    return fmt::format("{:.1f} {}", size, kUnits[unit]);
}

std::string Printable(std::string_view text) {
    std::string clean(text);
    std::replace_if(clean.begin(), clean.end(), [](unsigned char c) { return c < 0x20 || c == 0x7f; }, '?');
    return clean;
}

Value KnownText(std::string_view text) {
    return text.empty() ? Value() : Value(std::string(text));
}

Value KnownText(const char* text) {
    return text == nullptr ? Value() : KnownText(std::string_view(text));
}

Value KnownFlag(std::optional<bool> flag) {
    return flag ? Value(*flag) : Value();
}

Value BytesOf(std::optional<std::uint64_t> blocks, std::uint64_t blockSize) {
    if (!blocks || (blockSize == 0 && *blocks != 0)) {
        return {};
    }
    return *blocks * blockSize;
}

void MayGiveWay(Record& record, std::initializer_list<std::string_view> keys) {
    int rank = static_cast<int>(keys.size());
    for (const auto key : keys) {
        const auto field = std::find_if(record.fields.begin(), record.fields.end(),
                                        [&](const Field& one) { return one.key == key; });
        if (field != record.fields.end()) {
            field->rank = rank;
        }
        --rank;
    }
}

bool IsUnknown(const Field& field) {
    return field.format == Format::kParts ? field.parts.empty()
                                          : std::holds_alternative<std::monostate>(field.value);
}

std::string ToText(const Field& field, bool exactBytes) {
    if (field.format == Format::kParts) {
        return PartsText(field.parts, exactBytes);
    }
    const Format format = exactBytes && field.format == Format::kBytes ? Format::kPlain : field.format;
    return std::visit(
        [&](const auto& value) -> std::string {
            using Kind = std::decay_t<decltype(value)>;
            if constexpr (std::is_same_v<Kind, std::monostate>) {
                return "-";
            } else if constexpr (std::is_same_v<Kind, bool>) {
                return value ? "yes" : "no";
            } else if constexpr (std::is_same_v<Kind, std::string>) {
                return Printable(value);
            } else if constexpr (std::is_same_v<Kind, Texts>) {
                return value.empty() ? "-" : Printable(fmt::format("{}", fmt::join(value, ", ")));
            } else if constexpr (std::is_same_v<Kind, TextLists>) {
                return ListsText(value);
            } else {
                return NumberText(value, format);
            }
        },
        field.value);
}

std::string ToCell(const Field& field, bool exactBytes) {
    std::string text = ToText(field, exactBytes);
    if (field.format == Format::kDevice) {
        for (const std::string_view folder : {"/dev/mapper/", "/dev/"}) {
            if (text.starts_with(folder)) {
                return text.substr(folder.size());
            }
        }
    }
    return text;
}

}  // namespace cli
