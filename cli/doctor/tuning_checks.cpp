// Whether a cache runs as it is configured.
#include "caches/describe_entry.h"
#include "caches/tuning.h"
#include "doctor/check.h"
#include "doctor/parts.h"

namespace cli {
namespace {

bool IsWriteBack(std::int32_t mode) {
    return mode == FLASHCACHE_WRITE_BACK || mode == FLASHCACHE_WRITE_BACK_BYPASS ||
           mode == FLASHCACHE_WRITE_BACK_CRASH;
}

// Kernel and SSD know one write-back, of which the entry knows the kinds.
std::int32_t AsKernelTells(std::int32_t mode) {
    return IsWriteBack(mode) ? FLASHCACHE_WRITE_BACK : mode;
}

std::optional<std::int32_t> ModeInUse(const CacheFacts& cache) {
    if (cache.kernel) {
        return cache.kernel->mode;
    }
    const bool isIts = cache.ssdSide.content && !cache.ssdSide.isOfOtherVolume;
    return isIts ? std::optional(cache.ssdSide.content->mode) : std::nullopt;
}

std::optional<Finding> OtherMode(const CacheFacts& cache) {
    const auto mode = ModeInUse(cache);
    if (!cache.entry || !mode || *mode == AsKernelTells(cache.entry->policy.WriteMode)) {
        return std::nullopt;
    }
    const Value is = WriteModeText(*mode);
    const Value configured = WriteModeText(cache.entry->policy.WriteMode);
    Finding finding{fmt::format("Its write mode is {}, but {} is configured.", ToText({"", "", is}),
                                ToText({"", "", configured}))};
    finding.details = {{"write_mode", "Mode", is},
                       {"configured_write_mode", "Configured", configured},
                       {"told_by", "Told by", cache.IsUp() ? "the kernel" : "the SSD"}};
    finding.dataLoss = IsWriteBack(*mode) ? DataLoss::kUnknown : DataLoss::kNo;
    finding.commands = {CommandOn("config correct", cache)};
    finding.advice =
        "A cache keeps the mode with which it was created: the command makes the entry tell that one. For "
        "another mode the cache must be deleted, which flushes it, and created anew.";
    return finding;
}

std::optional<Finding> OtherTuning(const CacheFacts& cache) {
    const auto knobs = cache.kernel && cache.kernel->knobs ? TuningIn(*cache.kernel->knobs) : std::nullopt;
    if (!cache.entry || !knobs || cache.flush.runs || cache.mayBeChanging) {
        return std::nullopt;
    }
    const auto differences = TuningDifferences(cache.entry->policy, *knobs);
    if (differences.empty()) {
        return std::nullopt;
    }
    Finding finding{
        differences.size() == 1
            ? fmt::format("Its tuning is not the configured one: {}.", differences.front())
            : fmt::format("Its tuning differs from the configured one in {} knobs.", differences.size())};
    finding.details = {{"differences", "Differences", differences}};
    finding.count = differences.size();
    finding.commands = {CommandOn("load", cache)};
    finding.advice = "The command writes the configured tuning to the running cache.";
    return finding;
}

std::optional<Finding> OtherSize(const CacheFacts& cache) {
    std::uint64_t bytes = 0;
    if (cache.kernel && cache.kernel->blocks) {
        bytes = *cache.kernel->blocks * cache.kernel->blockSize;
    } else if (!cache.kernel && cache.ssdSide.content && !cache.ssdSide.isOfOtherVolume) {
        bytes = cache.ssdSide.content->Bytes();
    }
    // The kernel leaves a part of the SSD to its metadata: less than what was asked for is no fault.
    if (!cache.entry || bytes == 0 || cache.entry->bytes == 0 ||
        (bytes <= cache.entry->bytes && bytes >= cache.entry->bytes / 100 * 95)) {
        return std::nullopt;
    }
    Finding finding{"Its size is not the configured one."};
    finding.details = {Number("size_bytes", "Size", bytes, Format::kBytes),
                       Number("configured_bytes", "Configured", cache.entry->bytes, Format::kBytes)};
    finding.commands = {CommandOn("config correct", cache)};
    finding.advice = "The memory that caches need is reckoned from the configured size.";
    return finding;
}

}  // namespace

std::vector<Check> TuningChecks() {
    return {
        {"VFC-D020",
         Severity::kWarning,
         DataLoss::kUnknown,
         "Another write mode than configured",
         "Kernel or SSD tell another write mode than the entry has. A cache keeps the mode with which it was "
         "created; so the entry was changed by hand, or is that of another cache. Where the cache is "
         "write-back and the entry says that it is not, programs that go by the entry take it for one "
         "without "
         "dirty blocks, and unload or remove it without a flush.",
         {Source::kConfiguration, Source::kTable, Source::kSuperblock},
         OtherMode},
        {"VFC-D021",
         Severity::kWarning,
         DataLoss::kNo,
         "Another tuning than configured",
         "A knob of the running cache has another value than the entry asks for: fallow delay, dirty "
         "threshold, reclaim policy, the bypass of sequential I/O or, for write-back, fast_remove, with "
         "which "
         "dirty blocks stay on the SSD when the device is taken down. Somebody set it until the next "
         "loading, "
         "or the loading was ended half-way.",
         {Source::kConfiguration, Source::kTable, Source::kKnobs},
         OtherTuning},
        {"VFC-D022",
         Severity::kInfo,
         DataLoss::kNo,
         "Another size than configured",
         "The cache is larger than its entry says, or smaller by more than its metadata would explain. It "
         "works all the same; but what memory the configured caches need is reckoned from the entries.",
         {Source::kConfiguration, Source::kTable, Source::kSuperblock},
         OtherSize},
    };
}

}  // namespace cli
