// What the full-screen view of all caches shows, as lines.
#pragma once

#include <string>
#include <vector>

#include "output/answer.h"
#include "output/terminal.h"

namespace cli {

struct Frame {
    Answer table;       // of the newest round
    Form form;          // with the order that is wanted
    std::string title;  // after the number of caches
    std::string event;  // the last one; empty: none
    bool hasColour = false;
};

// At most so many lines, none wider than the screen. What there is no room for goes in this order: event,
// keys and title, the last caches, the heading; the title tells how many caches are shown.
std::vector<std::string> LinesOf(const Frame& frame, TerminalSize size);

// The order after a key was typed, as --sort has it; the key of the present order turns it round. Other keys
// leave it as it is.
std::string SortAfter(char key, const std::string& sort);

}  // namespace cli
