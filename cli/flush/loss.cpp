#include "flush/loss.h"

#include <fmt/format.h>

#include <algorithm>

#include "caches/kernel_state.h"

namespace cli {
namespace {

bool IsForced(const Cache& cache) {
    return AttributeOf(cache) == FLASHCACHE_ATTRIBUTE_FORCE_REMOVE;
}

}  // namespace

std::vector<Field> Lost::Fields() const {
    return {{"lost_blocks", "Lost blocks", blocks ? Value(*blocks) : Value()},
            {"lost_bytes", "Lost", BytesOf(blocks, blockSize), Format::kBytes}};
}

std::string Lost::Text(const Cache& cache) const {
    std::string number = "an unknown number of blocks may be LOST";
    if (blocks) {
        const std::string bytes = blockSize == 0 ? "" : fmt::format(", {} bytes", *blocks * blockSize);
        number = fmt::format("{} block{}{} are LOST", *blocks, blocks == 1U ? "" : "s", bytes);
    }
    return isAgreed ? fmt::format("{}: they were dropped, as agreed.", number)
                    : fmt::format("{}: the volume {} refused them, and force-remove gave them up.", number,
                                  cache.Volume());
}

void AddLoss(Failure& failure, const Cache& cache, const Lost& lost) {
    if (!lost.IsNone()) {
        failure.what = lost.Text(cache) + " Then: " + failure.what;
        failure.kind = FailureKind::kDataLost;
    }
}

LossWatch::LossWatch(const Cache& cache)
    : cache_(cache),
      gaveUp_(IsForced(cache)),
      dirtyBefore_(DirtyBlocks(cache.Ssd(), cache.Volume())),
      before_(WriteErrors(cache.Ssd(), cache.Volume())),
      last_(before_) {}

void LossWatch::See(std::optional<std::uint64_t> writeErrors) {
    if (writeErrors && last_ && *writeErrors < *last_) {
        begunAnew_ = true;
    }
    last_ = writeErrors;
}

Lost LossWatch::Read() {
    See(WriteErrors(cache_.Ssd(), cache_.Volume()));
    std::optional<std::uint64_t> blocks = 0;
    if (gaveUp_) {
        blocks = Count();
    } else if (IsForced(cache_) && last_ != 0U) {
        blocks = std::nullopt;  // set meanwhile: what was refused before that was kept
    }
    return {blocks, cache_.BlockSize()};
}

std::optional<std::uint64_t> LossWatch::Count() const {
    if (dirtyBefore_ == 0U) {
        return 0;
    }
    if (!last_) {
        return std::nullopt;
    }
    if (begunAnew_ || before_ == 0U) {
        return last_;
    }
    // An old count that did not fall was kept, or begun anew and has come as far again.
    const std::uint64_t least = before_ ? *last_ - *before_ : 0;
    const std::uint64_t most = std::min(*last_, dirtyBefore_.value_or(*last_));
    return least == most ? std::optional(most) : std::nullopt;
}

}  // namespace cli
