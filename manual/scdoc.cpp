#include "manual/scdoc.h"

#include <fmt/format.h>

namespace manual {

std::string Plain(std::string_view text) {
    // A point or an apostrophe is no mark of scdoc's, and scdoc itself keeps them from being taken for one by
    // what comes behind it.
    constexpr std::string_view kMarks = "\\*_#-[]|~<>+`";
    std::string plain;
    for (const char letter : text) {
        if (kMarks.find(letter) != std::string_view::npos) {
            plain += '\\';
        }
        plain += letter == '\n' ? ' ' : letter;
    }
    return plain;
}

std::string Head(std::string_view name, int section, std::string_view names, std::string_view what) {
    return fmt::format("{}({}) \"vemoflashcache {}\"\n\n{}{} - {}\n\n", name, section, VEMO_VERSION,
                       Heading("NAME"), names, what);
}

std::string Literal(std::string_view lines) {
    std::string text = "```\n";
    for (const char letter : lines) {
        text += letter == '\\' ? "\\\\" : std::string(1, letter);
    }
    if (!text.ends_with('\n')) {
        text += '\n';
    }
    return text + "```\n\n";
}

}  // namespace manual
