// What is known of the terminal that a descriptor leads to.
#pragma once

#include <cstddef>

namespace cli {

// How many columns it has, 80 where it does not say so; 0 when the descriptor leads to no terminal.
std::size_t TerminalWidth(int fd);

}  // namespace cli
