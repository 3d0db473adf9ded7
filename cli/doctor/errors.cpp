// What the kernel counts as errors.
#include "doctor/check.h"
#include "doctor/parts.h"

namespace cli {
namespace {

std::uint64_t ErrorCount(const CacheFacts& cache, std::initializer_list<const char*> names) {
    std::uint64_t sum = 0;
    for (const char* name : names) {
        sum += static_cast<std::uint64_t>(std::max<std::int64_t>(cache.Error(name).value_or(0), 0));
    }
    return sum;
}

void AddCounts(Finding& finding, const CacheFacts& cache,
               std::initializer_list<std::pair<const char*, const char*>> names) {
    for (const auto& [name, label] : names) {
        finding.details.push_back(CountField(name, label, cache.Error(name)));
    }
}

std::string Times(std::uint64_t count, const std::string& what) {
    return fmt::format("{} {}{}", count, what, count == 1 ? "" : "s");
}

std::optional<Finding> WriteBackErrors(const CacheFacts& cache) {
    const std::uint64_t errors = ErrorCount(cache, {"write_disk_sync_errors"});
    if (errors == 0) {
        return std::nullopt;
    }
    const bool isForced = cache.kernel && cache.kernel->attribute == FLASHCACHE_ATTRIBUTE_FORCE_REMOVE;
    Finding finding{fmt::format("{} to its volume {} failed.", Times(errors, "write-back"), cache.volume)};
    AddCounts(finding, cache, {{"write_disk_sync_errors", "Failed write-backs"}});
    const auto dirty = DirtyFields(cache);
    finding.details.insert(finding.details.end(), dirty.begin(), dirty.end());
    finding.count = errors;
    finding.dataLoss = isForced ? DataLoss::kYes : DataLoss::kUnknown;
    finding.commands = {"dmesg | tail -n 50", CommandOn("flush --status", cache)};
    finding.advice = fmt::format(
        "{} Look at the volume's health and mend it, then flush. The count begins anew with the next flush "
        "and "
        "with \"{}\".",
        isForced ? "force-remove is set, so these blocks are lost." : "The blocks are kept on the SSD.",
        CommandOn("knob set", cache, "zero_stats 1"));
    return finding;
}

std::optional<Finding> SsdErrors(const CacheFacts& cache) {
    const std::uint64_t errors = ErrorCount(cache, {"ssd_read_errors", "ssd_write_errors"});
    if (errors == 0) {
        return std::nullopt;
    }
    Finding finding{fmt::format("The kernel counts {} of its SSD {}.", Times(errors, "error"), cache.ssd)};
    AddCounts(finding, cache,
              {{"ssd_read_errors", "Failed SSD reads"}, {"ssd_write_errors", "Failed SSD writes"}});
    finding.count = errors;
    finding.dataLoss = cache.MayHoldDirty() ? DataLoss::kUnknown : DataLoss::kNo;
    finding.commands = {"dmesg | tail -n 50"};
    if (cache.MayHoldDirty()) {
        finding.commands.push_back(CommandOn("flush", cache));
    }
    finding.advice = "Write back what it holds while it still can be read, then replace the SSD.";
    return finding;
}

std::optional<Finding> VolumeErrors(const CacheFacts& cache) {
    const std::uint64_t all = ErrorCount(cache, {"disk_read_errors", "disk_write_errors"});
    const std::uint64_t writeBacks = ErrorCount(cache, {"write_disk_sync_errors"});
    // Failed write-backs are among the failed writes, and have a check of their own.
    if (all <= writeBacks) {
        return std::nullopt;
    }
    Finding finding{fmt::format("The kernel counts {} of its volume {}.", Times(all - writeBacks, "error"),
                                cache.volume)};
    AddCounts(finding, cache,
              {{"disk_read_errors", "Failed volume reads"}, {"disk_write_errors", "Failed volume writes"}});
    finding.count = all - writeBacks;
    finding.commands = {"dmesg | tail -n 50"};
    finding.advice = "Look at the health of the volume's disks.";
    return finding;
}

}  // namespace

std::vector<Check> ErrorChecks() {
    return {
        {"VFC-D080",
         Severity::kCritical,
         DataLoss::kUnknown,
         "Write-backs failed",
         "The kernel tried to write dirty blocks back, and the volume refused them or the SSD could not be "
         "read. "
         "The blocks stay on the SSD "
         "and are tried again, unless force-remove is set: then they are lost. A flush without force-remove "
         "fails at the first such error. As long as the volume is not mended, the SSD alone has these data.",
         {Source::kTable, Source::kErrors},
         WriteBackErrors},
        {"VFC-D081",
         Severity::kCritical,
         DataLoss::kUnknown,
         "The SSD has errors",
         "Reads or writes of the SSD failed. What lies there alone may not be readable any more, and it may "
         "become more: an SSD that begins to fail seldom stops.",
         {Source::kTable, Source::kErrors},
         SsdErrors},
        {"VFC-D082",
         Severity::kWarning,
         DataLoss::kUnknown,
         "The volume has errors",
         "Reads or writes of the volume failed that were no write-backs; programs that use the cache device "
         "got these errors.",
         {Source::kTable, Source::kErrors},
         VolumeErrors},
    };
}

}  // namespace cli
