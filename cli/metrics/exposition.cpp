#include "metrics/exposition.h"

#include <fmt/format.h>

#include <string_view>

namespace cli {
namespace {

const char* TypeText(Family::Type type) {
    switch (type) {
        case Family::Type::kCounter:
            return "counter";
        case Family::Type::kInfo:
            return "info";
        case Family::Type::kStateSet:
            return "stateset";
        case Family::Type::kGauge:
            break;
    }
    return "gauge";
}

const char* EndingOf(Family::Type type) {
    return type == Family::Type::kCounter ? "_total" : type == Family::Type::kInfo ? "_info" : "";
}

// Backslash, quote and line end are the three that a label's value, or a help text, must not hold as they
// are.
std::string Escaped(std::string_view text) {
    std::string escaped;
    for (const char character : text) {
        if (character == '\n') {
            escaped += "\\n";
            continue;
        }
        if (character == '\\' || character == '"') {
            escaped += '\\';
        }
        escaped += character;
    }
    return escaped;
}

std::string LabelsOf(const Sample& sample) {
    std::string text;
    for (const auto& [name, value] : sample.labels) {
        text += fmt::format("{}{}=\"{}\"", text.empty() ? "" : ",", name, Escaped(value));
    }
    return text.empty() ? "" : "{" + text + "}";
}

void AddHead(std::string& text, const Family& family, Exposition exposition) {
    if (exposition == Exposition::kPlain) {
        const bool isCounter = family.type == Family::Type::kCounter;
        const std::string name = family.name + EndingOf(family.type);
        text += fmt::format("# HELP {} {}\n# TYPE {} {}\n", name, Escaped(family.help), name,
                            isCounter ? "counter" : "gauge");
        return;
    }
    text += fmt::format("# TYPE {} {}\n", family.name, TypeText(family.type));
    if (!family.unit.empty()) {
        text += fmt::format("# UNIT {} {}\n", family.name, family.unit);
    }
    text += fmt::format("# HELP {} {}\n", family.name, Escaped(family.help));
}

}  // namespace

std::string ToText(const std::vector<Family>& families, Exposition exposition) {
    std::string text;
    for (const auto& family : families) {
        if (family.samples.empty()) {
            continue;
        }
        AddHead(text, family, exposition);
        for (const auto& sample : family.samples) {
            text += fmt::format("{}{}{} {}\n", family.name, EndingOf(family.type), LabelsOf(sample),
                                sample.value);
        }
    }
    return exposition == Exposition::kPlain ? text : text + "# EOF\n";
}

}  // namespace cli
