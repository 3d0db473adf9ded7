#pragma once

#include "text.h"
#include "text_map.h"

// A string hash: a map of texts that owns its texts. The room of a replaced value comes back with Clear.
struct VLIBC_SZHASH {
  public:
    const std::vector<vemo::platform::TextMap::Entry>& Entries() const { return map_.Entries(); }
    // Null when the key is absent. Texts are closed by a NUL.
    const vemo::platform::TextMap::Entry* Find(std::string_view key) const { return map_.Find(key); }
    void Set(std::string_view key, std::string_view value) {
        if (auto* const entry = map_.Find(key)) {
            entry->value = texts_.Keep(value);
        } else {
            Insert(key, value);
        }
    }
    // False, and nothing changed, when the key is there.
    bool Add(std::string_view key, std::string_view value) {
        if (map_.Find(key) != nullptr) return false;
        Insert(key, value);
        return true;
    }
    void Clear() {
        map_.Clear();
        texts_.Clear();
    }

  private:
    void Insert(std::string_view key, std::string_view value) {
        const std::string_view keptKey = texts_.Keep(key);
        map_.Insert(keptKey, texts_.Keep(value));
    }

    vemo::platform::TextMap map_;
    vemo::platform::TextArena texts_;
};
