#include "sizing/model/cache_model.h"

#include <algorithm>

namespace sizing {

Piece CacheModel::PieceAt(std::uint64_t offset, std::uint64_t length) const {
    const std::uint64_t inBlock = offset % blockSize_;
    return {offset / blockSize_, static_cast<std::uint32_t>(inBlock),
            static_cast<std::uint32_t>(std::min(length, blockSize_ - inBlock))};
}

std::vector<Step> CacheModel::StepsOf(std::uint64_t offset, std::uint64_t length) const {
    std::vector<Step> steps;
    steps.reserve(length / blockSize_ + 2);
    for (const std::uint64_t end = offset + length; offset < end; offset += steps.back().piece.length) {
        steps.emplace_back().piece = PieceAt(offset, end - offset);
    }
    return steps;
}

bool CacheModel::IsLongStream(std::uint64_t offset, std::uint64_t length) {
    const auto threshold = static_cast<std::uint64_t>(knobs_[Knob::kSkipSeqThreshKb]) * 1024;
    return sequence_.IsLongStream(offset, length, threshold);
}

std::vector<Step> CacheModel::Read(std::uint64_t offset, std::uint64_t length) {
    const bool bypass = IsLongStream(offset, length);
    std::vector<Step> steps = StepsOf(offset, length);
    for (Step& step : steps) {
        ReadPiece(step, bypass);
    }
    return steps;
}

std::vector<Step> CacheModel::Write(std::uint64_t offset, std::uint64_t length, std::uint64_t now) {
    const bool bypass = IsLongStream(offset, length);
    std::vector<Step> steps = StepsOf(offset, length);
    for (Step& step : steps) {
        WritePiece(step, bypass, now);
    }
    return steps;
}

std::vector<Step> CacheModel::Discard(std::uint64_t offset, std::uint64_t length) {
    std::vector<Step> steps;
    for (const std::uint64_t end = offset + length; offset < end;) {
        Step step;
        step.piece = PieceAt(offset, end - offset);
        offset += step.piece.length;
        const bool isCached = slots_.Find(step.piece.block).has_value();
        DiscardPiece(step);
        if (isCached) {
            steps.push_back(step);
        }
    }
    return steps;
}

void CacheModel::ReadPiece(Step& step, bool bypass) {
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

void CacheModel::WritePiece(Step& step, bool bypass, std::uint64_t now) {
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
    const bool isBack = mode_ == WriteMode::kBack && knobs_[Knob::kCacheAll] != 0;
    isBack ? WriteBack(step, bypass) : WriteThrough(step);
    if (step.slot) {
        cleaning_.NoteWritten(*step.slot, now);
    }
    if (step.slot && isBack) {
        MarkDirty(*step.slot);
    }
}

void CacheModel::DiscardPiece(Step& step) {
    step.slot = slots_.Find(step.piece.block);
    if (step.slot && IsWhole(step.piece)) {
        slots_.Drop(*step.slot);
        step.slot.reset();
        Count(Counter::kWriteInvalidates);
    } else if (step.slot) {
        step.wasDirty = slots_.IsDirty(*step.slot);
        Count(Counter::kSsdWrites);
    }
}

void CacheModel::WriteBack(Step& step, bool bypass) {
    if (step.slot) {
        Count(Counter::kDirtyWriteHits, step.wasDirty ? 1 : 0);
        Count(Counter::kSsdWrites);
        return;
    }
    if (!bypass) {
        step.fetches = !IsWhole(step.piece);
        Count(Counter::kDiskReads, step.fetches ? 1 : 0);
        Give(step);
    }
    if (step.slot) {
        Count(Counter::kWriteMissSsd);
        return;
    }
    Count(bypass ? Counter::kUncachedSequentialWrites : Counter::kUncachedWrites);
    Count(Counter::kDiskWrites);
    step.toSpace = true;
}

void CacheModel::WriteThrough(Step& step) {
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
void CacheModel::Give(Step& step) {
    const std::uint64_t replaced = slots_.Replaced();
    step.slot = slots_.Take(step.piece.block);
    step.isNew = step.slot.has_value();
    Count(Counter::kNoRoom, step.isNew ? 0 : 1);
    Count(Counter::kReplacement, slots_.Replaced() - replaced);
    Count(Counter::kSsdWrites, step.isNew ? 1 : 0);
}

void CacheModel::Touch(Slot slot) {
    if (knobs_[Knob::kReclaimPolicy] == kReclaimLru) {
        slots_.Touch(slot);
    }
}

void CacheModel::MarkDirty(Slot slot) {
    Count(Counter::kMetadataDirties, slots_.IsDirty(slot) ? 0 : 1);
    slots_.SetDirty(slot, true);
    cleaning_.NoteDirty(slot);
}

void CacheModel::MarkClean(Slot slot) {
    Count(Counter::kMetadataCleans, slots_.IsDirty(slot) ? 1 : 0);
    slots_.SetDirty(slot, false);
}

void CacheModel::MarkCleaned(const Cleaning::Batch& batch) {
    for (std::uint64_t i = 0; i < batch.count; ++i) {
        MarkClean(static_cast<Slot>(batch.first + i));
    }
    Count(Counter::kSsdReads, batch.count);
    Count(Counter::kDiskWrites, batch.count);
    Count(Counter::kCleanings, batch.count);
}

void CacheModel::SetKnob(Knob knob, std::int32_t value) {
    knobs_[knob] = value;
    cleaning_.LookAnew();
}

}  // namespace sizing
