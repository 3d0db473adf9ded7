// Lines of the configuration file that are none of its format: the library passes over them, and the entries
// that they belonged to are gone without a word.
#pragma once

#include <cstddef>
#include <istream>
#include <optional>
#include <string>

namespace cli {

inline constexpr const char* kConfigPath = "/usr/vemo/etc/flashcache.conf";

struct ConfigDamage {
    std::size_t line = 0;  // from 1
    std::string why;
};

// The first such line: each must be "[section]", "key = value", a remark or blank.
std::optional<ConfigDamage> FindDamage(std::istream& file);

}  // namespace cli
