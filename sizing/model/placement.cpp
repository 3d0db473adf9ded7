#include "sizing/model/placement.h"

#include <algorithm>

namespace sizing {

Piece Placement::PieceAt(uint64_t offset, uint64_t length) const {
    const uint64_t inBlock = offset % blockSize_;
    return {offset / blockSize_, static_cast<uint32_t>(inBlock),
            static_cast<uint32_t>(std::min(length, blockSize_ - inBlock))};
}

std::vector<Step> Placement::StepsOf(uint64_t offset, uint64_t length) const {
    std::vector<Step> steps;
    steps.reserve(length / blockSize_ + 2);
    for (const uint64_t end = offset + length; offset < end; offset += steps.back().piece.length) {
        steps.emplace_back().piece = PieceAt(offset, end - offset);
    }
    return steps;
}

bool Placement::IsLongStream(uint64_t offset, uint64_t length) {
    const auto threshold = static_cast<uint64_t>(knobs_[Knob::kSkipSeqThreshKb]) * 1024;
    return sequence_.IsLongStream(offset, length, threshold);
}

std::vector<Step> Placement::Read(uint64_t offset, uint64_t length) {
    const bool bypass = IsLongStream(offset, length);
    std::vector<Step> steps = StepsOf(offset, length);
    for (Step& step : steps) {
        ReadPiece(step, bypass);
    }
    return steps;
}

std::vector<Step> Placement::Write(uint64_t offset, uint64_t length) {
    const bool bypass = IsLongStream(offset, length);
    std::vector<Step> steps = StepsOf(offset, length);
    for (Step& step : steps) {
        WritePiece(step, bypass);
    }
    return steps;
}

void Placement::ReadPiece(Step& step, bool bypass) {
    Count(Counter::kReads);
    step.slot = slots_.Find(step.piece.block);
    if (step.slot) {
        Count(Counter::kReadHits);
        Count(Counter::kSsdReads);
        Touch(*step.slot);
        step.wasDirty = slots_.IsDirty(*step.slot);
        return;
    }
    Count(Counter::kDiskReads);
    if (bypass || knobs_[Knob::kCacheAll] == 0) {
        Count(bypass ? Counter::kUncachedSequentialReads : Counter::kUncachedReads);
        return;
    }
    Give(step);
    if (!step.slot) {
        Count(Counter::kUncachedReads);
    }
}

void Placement::WritePiece(Step& step, bool bypass) {
    Count(Counter::kWrites);
    step.slot = slots_.Find(step.piece.block);
    if (mode_ == WriteMode::kAround) {
        if (step.slot) {
            slots_.Drop(*step.slot);
            step.slot.reset();
        }
        Count(Counter::kUncachedWrites);
        Count(Counter::kDiskWrites);
        step.toSpace = true;
        return;
    }
    if (step.slot) {
        Count(Counter::kWriteHits);
        Touch(*step.slot);
        step.wasDirty = slots_.IsDirty(*step.slot);
    }
    if (mode_ == WriteMode::kBack && knobs_[Knob::kCacheAll] != 0) {
        WriteBack(step, bypass);
    } else {
        WriteThrough(step);
    }
}

void Placement::WriteBack(Step& step, bool bypass) {
    if (step.slot) {
        Count(Counter::kDirtyWriteHits, step.wasDirty ? 1 : 0);
        Count(Counter::kSsdWrites);
        MarkDirty(*step.slot);
        return;
    }
    if (!bypass) {
        step.fetches = !IsWhole(step.piece);
        Count(Counter::kDiskReads, step.fetches ? 1 : 0);
        Give(step);
    }
    if (step.slot) {
        Count(Counter::kWriteMissSsd);
        MarkDirty(*step.slot);
        return;
    }
    Count(bypass ? Counter::kUncachedSequentialWrites : Counter::kUncachedWrites);
    Count(Counter::kDiskWrites);
    step.toSpace = true;
}

void Placement::WriteThrough(Step& step) {
    if (step.slot) {
        Count(Counter::kSsdWrites);
        if (step.wasDirty && !IsWhole(step.piece)) {
            return;  // the rest of the block is dirty still, and is cleaned together with this
        }
        MarkClean(*step.slot);
    } else if (knobs_[Knob::kCacheAll] != 0 && IsWhole(step.piece)) {
        Give(step);
    }
    Count(Counter::kDiskWrites);
    Count(Counter::kUncachedWrites, step.slot ? 0 : 1);
    step.toSpace = true;
}

// Gives a block a slot if there is room, to be written whole.
void Placement::Give(Step& step) {
    const uint64_t replaced = slots_.Replaced();
    step.slot = slots_.Take(step.piece.block);
    step.isNew = step.slot.has_value();
    Count(Counter::kNoRoom, step.isNew ? 0 : 1);
    Count(Counter::kReplacement, slots_.Replaced() - replaced);
    Count(Counter::kSsdWrites, step.isNew ? 1 : 0);
}

void Placement::Touch(Slot slot) {
    if (knobs_[Knob::kReclaimPolicy] == kReclaimLru) {
        slots_.Touch(slot);
    }
}

void Placement::MarkDirty(Slot slot) {
    Count(Counter::kMetadataDirties, slots_.IsDirty(slot) ? 0 : 1);
    slots_.SetDirty(slot, true);
}

void Placement::MarkClean(Slot slot) {
    Count(Counter::kMetadataCleans, slots_.IsDirty(slot) ? 1 : 0);
    slots_.SetDirty(slot, false);
}

}  // namespace sizing
