#include "output/csv.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <type_traits>

namespace cli {
namespace {

std::string Quoted(const std::string& text) {
    if (text.find_first_of(",\"") == std::string::npos) {
        return text;
    }
    std::string quoted = "\"";
    for (const char character : text) {
        quoted.append(character == '"' ? 2 : 1, character);
    }
    return quoted + "\"";
}

std::string ToCsv(const Value& value) {
    return std::visit(
        [](const auto& known) -> std::string {
            using Kind = std::decay_t<decltype(known)>;
            if constexpr (std::is_same_v<Kind, std::monostate>) {
                return "";
            } else if constexpr (std::is_same_v<Kind, bool>) {
                return known ? "true" : "false";
            } else if constexpr (std::is_same_v<Kind, std::string>) {
                return Quoted(Printable(known));  // one line a record, whatever a name holds
            } else if constexpr (std::is_same_v<Kind, Texts>) {
                return Quoted(Printable(fmt::format("{}", fmt::join(known, ", "))));
            } else if constexpr (std::is_same_v<Kind, TextLists>) {
                return Quoted(ToText({"", "", known}));
            } else {
                return fmt::format("{}", known);
            }
        },
        value);
}

template <typename TextOf>
std::string LineOf(const Record& record, TextOf textOf) {
    std::string line;
    for (const auto& field : record.fields) {
        line += (&field == &record.fields.front() ? "" : ",") + textOf(field);
    }
    return line + "\n";
}

}  // namespace

std::string CsvHeadingOf(const Record& record) {
    return LineOf(record, [](const Field& field) { return Quoted(field.key); });
}

std::string CsvOf(const std::vector<Record>& records) {
    std::string lines;
    for (const auto& record : records) {
        lines += LineOf(record, [](const Field& field) { return ToCsv(field.value); });
    }
    return lines;
}

}  // namespace cli
