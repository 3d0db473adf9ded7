#pragma once

#include <vector>

#include "simulation/platform/text.h"

// A string list. Callers read the count, which therefore comes first.
struct VLIBC_SZLIST {
    int count = 0;
    std::vector<std::string_view> items;
    vemo::platform::TextArena texts;

    void Add(std::string_view text) {
        items.push_back(texts.Keep(text));
        ++count;
    }
};
