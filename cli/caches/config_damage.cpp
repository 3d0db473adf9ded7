#include "caches/config_damage.h"

#include <algorithm>
#include <string_view>

namespace cli {
namespace {

bool HasControlCharacter(std::string_view line) {
    return std::any_of(line.begin(), line.end(),
                       [](unsigned char c) { return (c < 0x20 && c != '\t' && c != '\r') || c == 0x7f; });
}

// What is wrong with a line; empty: nothing. `inSection` turns true behind the first header.
std::string_view WhyDamaged(std::string_view line, bool& inSection) {
    line.remove_prefix(std::min(line.find_first_not_of(" \t\r"), line.size()));
    if (line.empty() || line.front() == '#' || line.front() == ';') {
        return "";
    }
    if (HasControlCharacter(line)) {
        return "it has control characters";
    }
    if (line.front() == '[') {
        inSection = true;
        const auto end = line.find(']');
        return end == std::string_view::npos ? "a section's header without \"]\""
               : end == 1                    ? "a section without a name"
                                             : "";
    }
    const auto equals = line.find('=');
    if (equals == std::string_view::npos || equals == 0) {
        return "neither a section's header nor a key with its value";
    }
    return inSection ? "" : "a key before the first section";
}

}  // namespace

std::optional<ConfigDamage> FindDamage(std::istream& file) {
    bool inSection = false;
    std::string line;
    for (std::size_t number = 1; std::getline(file, line); ++number) {
        if (const auto why = WhyDamaged(line, inSection); !why.empty()) {
            return ConfigDamage{number, std::string(why)};
        }
    }
    return std::nullopt;
}

}  // namespace cli
