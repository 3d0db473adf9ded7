#include "doctor/facts.h"

namespace cli {
namespace {

std::optional<std::int64_t> CountOf(const std::optional<KernelFacts>& kernel,
                                    const std::optional<Counts> KernelFacts::* counts,
                                    std::string_view name) {
    if (!kernel || !((*kernel).*counts)) {
        return std::nullopt;
    }
    return CountIn(*((*kernel).*counts), name);
}

}  // namespace

std::optional<std::int32_t> CacheFacts::Mode() const {
    if (kernel && kernel->mode) {
        return kernel->mode;
    }
    if (ssdSide.content && !ssdSide.isOfOtherVolume) {
        return ssdSide.content->mode;
    }
    return entry ? std::optional(entry->policy.WriteMode) : std::nullopt;
}

bool CacheFacts::MayHoldDirty() const {
    const auto mode = Mode();
    return mode != FLASHCACHE_WRITE_THRU && mode != FLASHCACHE_WRITE_AROUND;
}

std::optional<std::uint64_t> CacheFacts::DirtyBlocks() const {
    if (!MayHoldDirty()) {
        return 0;
    }
    if (kernel) {
        return kernel->dirtyBlocks;
    }
    return ssdSide.content && !ssdSide.isOfOtherVolume ? ssdSide.content->dirtyBlocks : std::nullopt;
}

std::uint64_t CacheFacts::BlockSize() const {
    return kernel ? kernel->blockSize : ssdSide.content ? ssdSide.content->blockSize : 0;
}

std::optional<std::int64_t> CacheFacts::Knob(std::string_view knob) const {
    return CountOf(kernel, &KernelFacts::knobs, knob);
}

std::optional<std::int64_t> CacheFacts::Error(std::string_view error) const {
    return CountOf(kernel, &KernelFacts::errors, error);
}

std::optional<std::int64_t> CacheFacts::Counter(std::string_view counter) const {
    return CountOf(kernel, &KernelFacts::counters, counter);
}

}  // namespace cli
