#include "flush/loss.h"

#include <algorithm>

#include "caches/kernel_state.h"

namespace cli {
namespace {

bool IsForced(const Cache& cache) {
    return AttributeOf(cache) == FLASHCACHE_ATTRIBUTE_FORCE_REMOVE;
}

}  // namespace

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
