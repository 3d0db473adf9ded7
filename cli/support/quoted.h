// Words of commands that an admin pastes.
#pragma once

#include <string>
#include <string_view>

namespace cli {

// The word as a shell must be given it: names come from files that others write.
inline std::string Quoted(const std::string& word) {
    constexpr std::string_view kPlain =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789+-_./:@,=";
    if (!word.empty() && word.find_first_not_of(kPlain) == std::string::npos) {
        return word;
    }
    std::string quoted = "'";
    for (const char c : word) {
        quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return quoted + "'";
}

}  // namespace cli
