// Prose of a terminal's width.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace cli {

inline constexpr std::size_t kProseWidth = 80;

// The words of `text` in lines of at most `width` columns, each behind `indent` and ended; a word that is
// longer than a line has one of its own. No control characters get through.
std::string Wrapped(std::string_view text, std::string_view indent, std::size_t width = kProseWidth);

}  // namespace cli
