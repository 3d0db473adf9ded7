// How dirty blocks get to the volume: by a sync (do_sync), above the dirty threshold, when they lie fallow,
// on removal.
#include <algorithm>
#include <system_error>

#include "simulation/kernel/cache.h"

namespace simulation {

int Cache::SetKnob(Knob knob, std::string_view text) {
    const auto value = ParseKnobValue(knob, text);
    if (!value) {
        return EINVAL;
    }
    knobs_[knob] = *value;
    if (knob == Knob::kZeroStats && *value != 0) {
        counters_.Reset();
        syncErrors_ = 0;
        knobs_[knob] = 0;
    } else if (knob == Knob::kStopSync && *value != 0) {
        syncing_ = false;
    } else if (knob == Knob::kDoSync) {
        if (*value != 0) {
            BeginSync();
        } else {
            syncing_ = false;
        }
    }
    return 0;
}

// Asked for again while one runs, a sync goes on, with another try at what has failed.
void Cache::BeginSync() {
    knobs_[Knob::kStopSync] = 0;
    stalledUntil_ = {};
    if (!syncing_) {
        syncing_ = true;
        syncErrors_ = 0;
        initialDirty_ = static_cast<int64_t>(map_.Dirty());
        lastCleaned_ = pace_.Now();
    }
}

int Cache::SetAttribute(std::string_view text) {
    text = text.substr(0, text.find_first_of(std::string_view("\n\0", 2)));
    if (text != "none" && text != "force-remove") {
        return EINVAL;
    }
    forceRemove_ = text == "force-remove";
    return 0;
}

bool Cache::IsFallow() const {
    const int32_t delay = knobs_[Knob::kFallowDelay];
    return delay > 0 && map_.Dirty() > 0 &&
           pace_.Now() - writtenAt_[map_.OldestDirty()] >= std::chrono::seconds(delay);
}

// The number of dirty blocks to come down to; nothing when none needs cleaning.
std::optional<uint64_t> Cache::DirtyGoal() const {
    const uint64_t dirty = map_.Dirty();
    if (syncing_) {
        return 0;
    }
    if (dirty == 0 || !MayCleanUnasked()) {
        return std::nullopt;
    }
    const auto percent = static_cast<uint64_t>(knobs_[Knob::kDirtyThreshPct]);
    const uint64_t threshold = map_.Total() * percent / 100;
    if (dirty > threshold) {
        return threshold;
    }
    return std::nullopt;
}

void Cache::Work() {
    if (pace_.Now() < stalledUntil_) {
        return;
    }
    const auto goal = DirtyGoal();
    if (!goal && MayCleanUnasked() && IsFallow() && !pace_.Paused()) {
        const uint64_t speed = static_cast<uint64_t>(knobs_[Knob::kFallowCleanSpeed]);
        Count(Counter::kFallowCleanings, CleanBlocks(std::min(speed, map_.Dirty())));
        stalledUntil_ = pace_.Now() + std::chrono::seconds(1);
    }
    if (!goal || map_.Dirty() < *goal) {
        return;
    }
    CleanBlocks(std::min(map_.Dirty() - *goal, pace_.Budget(lastCleaned_)));
    if (syncing_ && map_.Dirty() == 0) {
        syncing_ = false;
    }
}

int Cache::WorkWaitMs() const {
    if (!DirtyGoal()) {
        const bool mayLieFallow = map_.Dirty() > 0 && MayCleanUnasked() && knobs_[Knob::kFallowDelay] > 0;
        return mayLieFallow ? 1000 : -1;
    }
    const auto stalled =
        std::chrono::duration_cast<std::chrono::milliseconds>(stalledUntil_ - pace_.Now()).count();
    const int wait = pace_.WaitMs();
    return wait < 0 ? wait : std::max(wait, static_cast<int>(std::max<int64_t>(stalled + 1, 0)));
}

uint64_t Cache::CleanBlocks(uint64_t count) {
    uint64_t cleaned = 0;
    while (cleaned < count && map_.Dirty() > 0) {
        if (!CleanOldest()) {
            stalledUntil_ = pace_.Now() + std::chrono::seconds(1);
            break;
        }
        ++cleaned;
    }
    if (cleaned > 0) {
        Persist();
        space_.DropCache();
    }
    return cleaned;
}

// False when the write-back failed: the block stays dirty, at the young end. On a cache that is to be
// removed by force such a block is given up instead, since otherwise it would never come to its end.
bool Cache::CleanOldest() {
    const Slot slot = map_.OldestDirty();
    const bool rejected = !faults_.Take("writeback").empty();
    try {
        ssd_.Read(superblock_.SlotOffset(slot), block_);
        Count(Counter::kSsdReads);
        if (rejected) {
            throw std::system_error(EIO, std::generic_category());
        }
        WriteSpace({map_.BlockOf(slot), 0, superblock_.blockSize}, block_);
    } catch (const std::system_error&) {
        ++syncErrors_;
        if (!forceRemove_) {
            map_.Touch(slot);
            return false;
        }
        map_.Drop(slot);
        return true;
    }
    MarkClean(slot);
    Count(Counter::kCleanings);
    return true;
}

void Cache::CleanForRemoval() {
    if (knobs_[Knob::kFastRemove] == 0) {
        CleanBlocks(map_.Dirty());
    }
}

}  // namespace simulation
