// How a cache carries out what its model decided: neighbours in one go, and around a disk that fails.
#include <algorithm>
#include <set>

#include "simulation/kernel/cache.h"

namespace simulation {

std::span<char> Cache::PartOf(const Job& job, const Step& step) const {
    return job.memory.subspan(SpaceOffset(step.piece) - job.offset, step.piece.length);
}

// All of the block: the first and the last of a request are perhaps not wholly in its memory.
std::span<char> Cache::WholeOf(const Job& job, const Step& step) {
    if (model_.IsWhole(step.piece)) {
        return PartOf(job, step);
    }
    return edges_[&step == &job.steps.front() ? 0 : 1];
}

std::vector<Run> Cache::RunsOnSsd(Job& job, const Test& wanted) {
    std::vector<Run> runs;
    for (Step& step : job.steps) {
        if (step.slot && wanted(step)) {
            const uint64_t offset = superblock_.SlotOffset(*step.slot) + (step.isNew ? 0 : step.piece.offset);
            Append(runs, offset, step.isNew ? WholeOf(job, step) : PartOf(job, step), step);
        }
    }
    return runs;
}

std::vector<Run> Cache::RunsOnSpace(Job& job, const Test& wanted, const Test& whole) {
    std::vector<Run> runs;
    for (Step& step : job.steps) {
        if (wanted(step)) {
            const bool isWhole = whole(step);
            Append(runs, SpaceOffset(step.piece) - (isWhole ? step.piece.offset : 0),
                   isWhole ? WholeOf(job, step) : PartOf(job, step), step);
        }
    }
    return runs;
}

void Cache::ReadSsd(Job& job) {
    for (Run& run : RunsOnSsd(job, [](const Step& step) { return !step.isNew; })) {
        if (Went(Counter::kSsdReadErrors, [&] { ssd_.Read(run.offset, std::move(run.memory)); })) {
            continue;
        }
        job.failed = job.failed || run.isDirty;
        for (Step* step : run.steps) {
            if (!run.isDirty) {
                GiveUpSlot(*step);  // it is read from the volume
                Count(Counter::kDiskReads);
            }
        }
    }
}

// What is to enter the cache is read as whole blocks.
void Cache::ReadSpace(Job& job) {
    const Test missed = [](const Step& step) { return step.isNew || !step.slot; };
    for (Run& run : RunsOnSpace(job, missed, [](const Step& step) { return step.isNew; })) {
        job.failed =
            !Went(Counter::kDiskReadErrors, [&] { space_.Read(run.offset, std::move(run.memory)); }) ||
            job.failed;
    }
    for (const Step& step : job.steps) {
        if (step.isNew && !model_.IsWhole(step.piece)) {
            const std::span<char> part = WholeOf(job, step).subspan(step.piece.offset, step.piece.length);
            std::copy(part.begin(), part.end(), PartOf(job, step).begin());
        }
    }
}

// Completes the blocks that a write enters but does not cover.
void Cache::FetchRests(Job& job) {
    const Test fetches = [](const Step& step) { return step.fetches; };
    for (Run& run : RunsOnSpace(job, fetches, fetches)) {
        job.failed =
            !Went(Counter::kDiskReadErrors, [&] { space_.Read(run.offset, std::move(run.memory)); }) ||
            job.failed;
    }
    for (const Step& step : job.steps) {
        if (step.fetches) {
            const std::span<char> part = PartOf(job, step);
            std::copy(part.begin(), part.end(), WholeOf(job, step).begin() + step.piece.offset);
        }
    }
}

// Before slots get other data than that which the SSD's map calls dirty. False when they cannot.
bool Cache::PrepareSlots(Job& job) {
    const bool isSafe = std::none_of(job.steps.begin(), job.steps.end(), [this](const Step& step) {
        return step.isNew && ssdMap_.CallsDirty(*step.slot);
    });
    if (isSafe) {
        return true;
    }
    std::set<Slot> unwritten;
    for (const Step& step : job.steps) {
        if (step.slot && !step.wasDirty) {
            unwritten.insert(*step.slot);
        }
    }
    if (Went(Counter::kDiskWriteErrors, [&] { space_.Flush(); }) &&
        Went(Counter::kSsdWriteErrors, [&] { ssdMap_.CallFree(unwritten); })) {
        return true;
    }
    for (Step& step : job.steps) {
        if (step.isNew) {
            GiveUpSlot(step);
            step.toSpace = true;
        }
    }
    return false;
}

// What cannot be written there goes to the volume, unless that has not the rest of the block.
void Cache::WriteSsd(Job& job, const Test& wanted) {
    for (Run& run : RunsOnSsd(job, wanted)) {
        if (Went(Counter::kSsdWriteErrors, [&] { ssd_.Write(run.offset, std::move(run.memory)); })) {
            continue;
        }
        job.failed = job.failed || run.isDirty;
        for (Step* step : run.steps) {
            if (run.isDirty) {
                model_.MarkDirty(*step->slot);
                step->toSpace = false;  // or the volume would have what the slot has not
            } else {
                GiveUpSlot(*step);
                Count(Counter::kDiskWrites, step->toSpace ? 0 : 1);
                step->toSpace = true;
            }
        }
    }
}

// Where the volume fails, what it may hold is unknown: the SSD keeps no clean copy that says otherwise.
void Cache::WriteSpace(Job& job) {
    const Test toSpace = [](const Step& step) { return step.toSpace; };
    for (Run& run : RunsOnSpace(job, toSpace, [](const Step&) { return false; })) {
        if (Went(Counter::kDiskWriteErrors, [&] { space_.Write(run.offset, std::move(run.memory)); })) {
            continue;
        }
        job.failed = true;
        for (Step* step : run.steps) {
            if (!run.isDirty) {
                GiveUpSlot(*step);
            } else if (step->slot) {
                model_.MarkDirty(*step->slot);
            }
        }
    }
}

void Cache::GiveUpSlot(Step& step) {
    if (step.slot && map_.Find(step.piece.block) == step.slot) {
        map_.Drop(*step.slot);
    }
    step.slot.reset();
    step.isNew = false;
}

// Nothing was written: blocks are no longer where they were to go.
void Cache::Undo(Job& job) {
    for (Step& step : job.steps) {
        if (step.isNew) {
            GiveUpSlot(step);
        } else if (step.slot && map_.Find(step.piece.block) == step.slot) {
            map_.SetDirty(*step.slot, step.wasDirty);
        }
    }
}

}  // namespace simulation
