#include "sizing/model/cleaning.h"

#include <algorithm>

namespace sizing {

namespace {

constexpr std::uint64_t kSecond = 1'000'000'000;

}  // namespace

Cleaning::Cleaning(const SlotMap& slots, const KnobValues& knobs)
    : slots_(slots),
      knobs_(knobs),
      writtenAt_(slots.Total()),
      fallowAt_(slots.Sets(), kNever),
      isListed_(slots.Sets()) {}

void Cleaning::NoteDirty(Slot slot) {
    const Set set = slots_.SetOfSlot(slot);
    if (!isListed_[set] && slots_.DirtyIn(set) > Share(set)) {
        isListed_[set] = true;
        excess_.push_back(set);
    }
    fallowAt_[set] = std::min(fallowAt_[set], writtenAt_[slot] + Delay());
    nextFallow_ = std::min(nextFallow_, std::max(fallowAt_[set], nextTurn_));
}

void Cleaning::LookAnew() {
    for (Set set = 0; set < slots_.Sets(); ++set) {
        const auto oldest = slots_.OldestDirty(set);
        fallowAt_[set] = oldest ? 0 : kNever;
        if (oldest) {
            NoteDirty(*oldest);
        }
    }
}

void Cleaning::Reset(std::uint64_t now) {
    std::ranges::fill(writtenAt_, now);
    LookAnew();
}

bool Cleaning::MayCleanUnasked() const {
    return knobs_[Knob::kMaxCleanIosTotal] > 0 && knobs_[Knob::kMaxCleanIosSet] > 0;
}

std::uint64_t Cleaning::Share(Set set) const {
    return slots_.SlotsIn(set) * static_cast<std::uint64_t>(knobs_[Knob::kDirtyThreshPct]) / 100;
}

std::optional<Cleaning::Due> Cleaning::Excess() {
    while (!excess_.empty()) {
        const Set set = excess_.front();
        const std::uint64_t dirty = slots_.DirtyIn(set);
        if (dirty > Share(set)) {
            return MayCleanUnasked() ? std::optional<Due>({set, dirty - Share(set)}) : std::nullopt;
        }
        excess_.pop_front();
        isListed_[set] = false;
    }
    return std::nullopt;
}

std::optional<Cleaning::Due> Cleaning::Any() {
    if (slots_.Dirty() == 0) {
        return std::nullopt;
    }
    while (slots_.DirtyIn(any_) == 0) {
        any_ = (any_ + 1) % slots_.Sets();
    }
    return Due{any_, slots_.DirtyIn(any_)};
}

void Cleaning::PutOff(Set set) {
    if (!excess_.empty() && excess_.front() == set) {
        excess_.pop_front();
        excess_.push_back(set);
    }
    any_ = any_ == set ? (any_ + 1) % slots_.Sets() : any_;
}

Cleaning::Batch Cleaning::Oldest(Set set, std::uint64_t most) const {
    auto slot = slots_.OldestDirty(set);
    if (!slot) {
        return {};
    }
    Batch batch{*slot, 0};
    const std::uint64_t block = slots_.BlockOf(*slot);
    while (batch.count < most && slot == batch.first + batch.count &&
           slots_.BlockOf(*slot) == block + batch.count) {
        ++batch.count;
        slot = slots_.NextDirty(*slot);
    }
    return batch;
}

std::uint64_t Cleaning::Delay() const {
    return static_cast<std::uint64_t>(knobs_[Knob::kFallowDelay]) * kSecond;
}

std::optional<std::uint64_t> Cleaning::FallowAt() const {
    const bool mayBe = Delay() > 0 && slots_.Dirty() > 0 && MayCleanUnasked();
    return mayBe && nextFallow_ != kNever ? std::optional(nextFallow_) : std::nullopt;
}

std::vector<Cleaning::Slot> Cleaning::TakeFallow(std::uint64_t now) {
    std::vector<Slot> taken;
    const auto due = FallowAt();
    if (!due || *due > now) {
        return taken;
    }
    nextTurn_ = now + kSecond;
    nextFallow_ = kNever;
    for (Set set = 0; set < slots_.Sets(); ++set) {
        if (fallowAt_[set] <= now) {
            TakeFallowOf(set, now, taken);
        }
        nextFallow_ = std::min(nextFallow_, fallowAt_[set]);
    }
    nextFallow_ = std::max(nextFallow_, nextTurn_);
    return taken;
}

void Cleaning::TakeFallowOf(Set set, std::uint64_t now, std::vector<Slot>& taken) {
    auto left = knobs_[Knob::kFallowCleanSpeed];
    fallowAt_[set] = kNever;
    for (auto slot = slots_.OldestDirty(set); slot; slot = slots_.NextDirty(*slot)) {
        const std::uint64_t fallowAt = writtenAt_[*slot] + Delay();
        if (fallowAt <= now && left > 0) {
            taken.push_back(*slot);
            --left;
            continue;
        }
        fallowAt_[set] = std::min(fallowAt_[set], fallowAt);
    }
}

}  // namespace sizing
