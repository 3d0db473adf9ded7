#include "sizing/trace/volume_names.h"

namespace sizing {

std::size_t VolumeNames::SlotOf(std::uint64_t key) const noexcept {
    std::size_t slot = key % kSlots;
    while (slots_[slot].name != 0 && slots_[slot].key != key) {
        slot = (slot + 1) % kSlots;
    }
    return slot;
}

void VolumeNames::Remember(std::uint64_t key, std::string_view name) {
    Slot& slot = slots_[SlotOf(key)];
    if (slot.name == 0 && names_.size() < kMostNames) {
        names_.emplace_back(name.substr(0, kLongestName));
        slot = {key, names_.size()};
    }
}

std::string VolumeNames::NameOf(std::uint64_t key) const {
    const Slot& slot = slots_[SlotOf(key)];
    return slot.name == 0 ? "" : names_[slot.name - 1];
}

}  // namespace sizing
