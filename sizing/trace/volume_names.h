// The names that a trace gives its volumes.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "sizing/hash.h"

namespace sizing {

// A volume is known by the key of its name, so that any number of them costs no memory; the first names are
// kept.
class VolumeNames {
  public:
    static constexpr std::size_t kMostNames = 4096;
    static constexpr std::size_t kLongestName = 255;

    VolumeNames() : slots_(kSlots) {}

    // The key of a name, which is remembered.
    std::uint64_t KeyOf(std::string_view name) {
        const std::uint64_t key = TextKey(name);
        if (key != lastKey_) {
            Remember(key, name);
            lastKey_ = key;
        }
        return key;
    }

    // Empty when it came after the first kMostNames. Names are cut to kLongestName.
    [[nodiscard]] std::string NameOf(std::uint64_t key) const;
    [[nodiscard]] const std::vector<std::string>& Names() const noexcept { return names_; }

  private:
    static constexpr std::size_t kSlots = 2 * kMostNames;  // half of them stay free, so a search soon ends
    struct Slot {
        std::uint64_t key = 0;
        std::size_t name = 0;  // its place in names_ + 1; 0: the slot is free
    };

    [[nodiscard]] std::size_t SlotOf(std::uint64_t key) const noexcept;
    void Remember(std::uint64_t key, std::string_view name);

    std::vector<Slot> slots_;
    std::vector<std::string> names_;
    std::uint64_t lastKey_ = 0;
};

}  // namespace sizing
