// What is known of the terminal that a descriptor leads to.
#pragma once

#include <cstddef>
#include <string>

namespace cli {

struct TerminalSize {
    std::size_t columns = 0;
    std::size_t rows = 0;
};

// Its size, 80 columns and 24 rows where it does not say so; 0 when the descriptor leads to no terminal.
TerminalSize SizeOfTerminal(int fd);

// How many columns it has, 80 where it does not say so; 0 when the descriptor leads to no terminal.
std::size_t TerminalWidth(int fd);

// Whether the cursor can be moved on it: not on a "dumb" terminal, nor where TERM says nothing.
bool CanMoveCursor();

// Whether colours are wanted: not with NO_COLOR.
bool WantsColour();

// Whether the locale's characters are UTF-8.
bool HasUtf8();

// As much of a text in UTF-8 as so many columns hold.
std::string CutToWidth(const std::string& text, std::size_t columns);

}  // namespace cli
