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
    model_.SetKnob(knob, *value);
    if (knob == Knob::kZeroStats && *value != 0) {
        model_.Counts().Reset();
        syncErrors_ = 0;
        model_.SetKnob(knob, 0);
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
    model_.SetKnob(Knob::kStopSync, 0);
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

void Cache::Work() {
    if (pace_.Now() < stalledUntil_) {
        return;
    }
    Cleaning& cleaner = model_.Cleaner();
    if (syncing_) {
        CleanBlocks(std::min(map_.Dirty(), pace_.Budget(lastCleaned_)));
        syncing_ = map_.Dirty() > 0;
    } else if (cleaner.Excess()) {
        CleanExcess(pace_.Budget(lastCleaned_));
    } else if (!pace_.Paused()) {
        CleanFallow();
    }
}

int Cache::WorkWaitMs() {
    Cleaning& cleaner = model_.Cleaner();
    if (!syncing_ && !cleaner.Excess()) {
        return cleaner.FallowAt() ? 1000 : -1;
    }
    const auto stalled =
        std::chrono::duration_cast<std::chrono::milliseconds>(stalledUntil_ - pace_.Now()).count();
    const int wait = pace_.WaitMs();
    return wait < 0 ? wait : std::max(wait, static_cast<int>(std::max<int64_t>(stalled + 1, 0)));
}

// At once, so that how many blocks are dirty hangs on the requests alone; unless the pace is set from
// outside.
void Cache::CleanAfterWrite() {
    if (pace_.IsImmediate() && pace_.Now() >= stalledUntil_) {
        CleanExcess(map_.Dirty());
    }
}

uint64_t Cache::CleanBlocks(uint64_t count) {
    return Clean(count, [this] { return model_.Cleaner().Any(); });
}

void Cache::CleanExcess(uint64_t most) {
    Clean(most, [this] { return model_.Cleaner().Excess(); });
}

void Cache::CleanFallow() {
    uint64_t cleaned = 0;
    for (const Slot slot : model_.Cleaner().TakeFallow(pace_.Nanoseconds())) {
        if (CleanBatch({slot, 1}) || GiveUp(slot)) {
            ++cleaned;
        } else {
            model_.Cleaner().NoteDirty(slot);  // it has its turn again
        }
    }
    Count(Counter::kFallowCleanings, cleaned);
    PersistCleaned(cleaned);
}

// Cleans up to `most` blocks of those that `due` tells; returns how many are done.
uint64_t Cache::Clean(uint64_t most, const std::function<std::optional<Cleaning::Due>()>& due) {
    uint64_t cleaned = 0;
    for (auto next = due(); next && cleaned < most; next = due()) {
        const Cleaning::Batch batch = OldestIn(next->set, std::min(next->blocks, most - cleaned));
        if (batch.count > 1 && CleanBatch(batch)) {
            cleaned += batch.count;
        } else if (CleanBatch({batch.first, 1}) || GiveUp(batch.first)) {
            ++cleaned;
        } else {
            model_.Cleaner().PutOff(next->set);
            stalledUntil_ = pace_.Now() + std::chrono::seconds(1);
            break;
        }
    }
    PersistCleaned(cleaned);
    return cleaned;
}

void Cache::PersistCleaned(uint64_t cleaned) {
    if (cleaned == 0) {
        return;
    }
    try {
        Persist();
    } catch (const std::system_error&) {
        stalledUntil_ =
            pace_.Now() + std::chrono::seconds(1);  // it is counted, and tried again by the next sync
    }
    space_.DropCache();
}

// A rejection is of one block, so that while such a fault is set each goes alone.
Cleaning::Batch Cache::OldestIn(Cleaning::Set set, uint64_t most) const {
    constexpr uint64_t kMostBytes = uint64_t{1024} * 1024;
    most = faults_.Peek("writeback").empty() ? std::min(most, kMostBytes / superblock_.blockSize) : 1;
    return model_.Cleaner().Oldest(set, most);
}

// Writes dirty neighbours back. False when that failed; they are dirty still.
bool Cache::CleanBatch(const Cleaning::Batch& batch) {
    const bool rejected = !faults_.Take("writeback").empty();
    cleaned_.resize(batch.count * superblock_.blockSize);
    if (!Went(Counter::kSsdReadErrors, [&] { ssd_.Read(superblock_.SlotOffset(batch.first), cleaned_); })) {
        return false;
    }
    const uint64_t offset = map_.BlockOf(batch.first) * superblock_.blockSize;
    if (rejected) {
        Count(Counter::kDiskWriteErrors);
        return false;
    }
    if (!Went(Counter::kDiskWriteErrors, [&] { space_.Write(offset, cleaned_); })) {
        return false;
    }
    model_.MarkCleaned(batch);
    return true;
}

// After a write-back that failed: the block stays dirty, at the young end. On a cache that is to be removed
// by force it is given up instead, since otherwise that would never come to its end. True when it is gone.
bool Cache::GiveUp(Slot slot) {
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
