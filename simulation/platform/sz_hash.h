#pragma once

#include "simulation/platform/text.h"
#include "simulation/platform/text_map.h"

// A string hash: a map of texts together with the texts. The room of a replaced value comes back with Clear.
struct VLIBC_SZHASH {
    vemo::platform::TextMap map;
    vemo::platform::TextArena texts;

    void Set(std::string_view key, std::string_view value) {
        if (const auto* const entry = map.Find(key)) {
            map.Replace(*entry, texts.Keep(value));
        } else {
            const std::string_view keptKey = texts.Keep(key);
            map.Insert(keptKey, texts.Keep(value));
        }
    }
};
