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
    placement_.Knobs()[knob] = *value;
    if (knob == Knob::kZeroStats && *value != 0) {
        placement_.Counts().Reset();
        syncErrors_ = 0;
        placement_.Knobs()[knob] = 0;
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
    placement_.Knobs()[Knob::kStopSync] = 0;
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
    const int32_t delay = Value(Knob::kFallowDelay);
    return delay > 0 && map_.Dirty() > 0 &&
           pace_.Now() - writtenAt_[map_.DirtySlots().front()] >= std::chrono::seconds(delay);
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
    const auto percent = static_cast<uint64_t>(Value(Knob::kDirtyThreshPct));
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
        const uint64_t speed = static_cast<uint64_t>(Value(Knob::kFallowCleanSpeed));
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
        const bool mayLieFallow = map_.Dirty() > 0 && MayCleanUnasked() && Value(Knob::kFallowDelay) > 0;
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
        const uint64_t neighbours = OldestNeighbours(count - cleaned);
        if (neighbours > 1 && CleanOldest(neighbours)) {
            cleaned += neighbours;
        } else if (CleanOldest(1) || GiveUpOldest()) {
            ++cleaned;
        } else {
            stalledUntil_ = pace_.Now() + std::chrono::seconds(1);
            break;
        }
    }
    if (cleaned > 0) {
        try {
            Persist();
        } catch (const std::system_error&) {
            stalledUntil_ =
                pace_.Now() + std::chrono::seconds(1);  // it is counted, and tried again by the next sync
        }
        space_.DropCache();
    }
    return cleaned;
}

// A rejection is of one block, so that while such a fault is set each goes alone.
uint64_t Cache::OldestNeighbours(uint64_t most) const {
    constexpr uint64_t kMostBytes = uint64_t{1024} * 1024;
    most = faults_.Peek("writeback").empty() ? std::min(most, kMostBytes / superblock_.blockSize) : 1;
    const Slot first = map_.DirtySlots().front();
    uint64_t count = 0;
    for (const Slot slot : map_.DirtySlots()) {
        if (count == most || slot != first + count || map_.BlockOf(slot) != map_.BlockOf(first) + count) {
            break;
        }
        ++count;
    }
    return count;
}

// Writes the oldest dirty blocks back, so many neighbours. False when that failed; they are dirty still.
bool Cache::CleanOldest(uint64_t count) {
    const Slot first = map_.DirtySlots().front();
    const bool rejected = !faults_.Take("writeback").empty();
    cleaned_.resize(count * superblock_.blockSize);
    if (!Went(Counter::kSsdReadErrors, [&] { ssd_.Read(superblock_.SlotOffset(first), cleaned_); })) {
        return false;
    }
    Count(Counter::kSsdReads, count);
    if (rejected) {
        Count(Counter::kDiskWriteErrors);
        return false;
    }
    Count(Counter::kDiskWrites, count);
    const uint64_t offset = map_.BlockOf(first) * superblock_.blockSize;
    if (!Went(Counter::kDiskWriteErrors, [&] { space_.Write(offset, cleaned_); })) {
        return false;
    }
    for (uint64_t i = 0; i < count; ++i) {
        placement_.MarkClean(static_cast<Slot>(first + i));
    }
    Count(Counter::kCleanings, count);
    return true;
}

// After a write-back that failed: the block stays dirty, at the young end. On a cache that is to be removed
// by force it is given up instead, since otherwise that would never come to its end. True when it is gone.
bool Cache::GiveUpOldest() {
    const Slot slot = map_.DirtySlots().front();
    ++syncErrors_;
    forceRemove_ ? map_.Drop(slot) : map_.Touch(slot);
    return forceRemove_;
}

void Cache::CleanForRemoval() {
    if (Value(Knob::kFastRemove) == 0) {
        CleanBlocks(map_.Dirty());
    }
}

}  // namespace simulation
