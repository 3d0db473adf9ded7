// The pieces that manual pages are put together from, in the form that scdoc reads.
#pragma once

#include <fmt/format.h>

#include <string>
#include <string_view>

namespace manual {

// Text that means itself, on one line.
std::string Plain(std::string_view text);

inline std::string Bold(std::string_view text) {
    return fmt::format("*{}*", Plain(text));
}

inline std::string Underlined(std::string_view text) {
    return fmt::format("_{}_", Plain(text));
}

// "vemocachectl-flush(8)" and its short description: what a page begins with.
std::string Head(std::string_view name, int section, std::string_view names, std::string_view what);

inline std::string Heading(std::string_view text) {
    return "# " + std::string(text) + "\n\n";
}

inline std::string SubHeading(std::string_view text) {
    return "## " + Plain(text) + "\n\n";
}

inline std::string Paragraph(std::string_view text) {
    return std::string(text) + "\n\n";
}

// A term, already formatted, and what it means.
inline std::string Meaning(std::string_view term, std::string_view text) {
    return std::string(term) + "\n\t" + std::string(text) + "\n\n";
}

// Lines that stay as they are.
std::string Literal(std::string_view lines);

}  // namespace manual
