// Volumes that are used past their caches.
#include <fmt/ranges.h>

#include "doctor/check.h"
#include "doctor/parts.h"

namespace cli {
namespace {

bool WasWritten(const CacheFacts& cache) {
    return cache.IsKnownDown() && cache.volumeSide.since.volume == SinceUnload::Volume::kWritten;
}

// Of an unknown number, some may be dirty.
bool MayBeDirty(const CacheFacts& cache) {
    return cache.MayHoldDirty() && cache.DirtyBlocks() != 0U;
}

std::vector<Field> WrittenFields(const CacheFacts& cache) {
    auto fields = DirtyFields(cache);
    fields.push_back({"unloaded_at", "Unloaded at", KnownText(cache.volumeSide.since.when)});
    return fields;
}

std::optional<Finding> WrittenOverDirty(const CacheFacts& cache) {
    if (!WasWritten(cache) || !MayBeDirty(cache)) {
        return std::nullopt;
    }
    Finding finding{
        fmt::format("Its volume was written while its unloaded cache holds {}.", DirtyText(cache))};
    finding.details = WrittenFields(cache);
    finding.commands = {CommandOn("status", cache)};
    finding.advice = fmt::format(
        "Either side has data that the other has not. Save what is needed from the volume first. Loading "
        "with "
        "\"--accept-stale\" lets the old blocks of the SSD overwrite newer ones. {}",
        GiveUpText(cache));
    return finding;
}

std::optional<Finding> MountedOverDirty(const CacheFacts& cache) {
    if (!cache.IsKnownDown() || cache.volumeSide.mounts.empty() || !MayBeDirty(cache)) {
        return std::nullopt;
    }
    Finding finding{fmt::format("Its volume is mounted on {} while its unloaded cache holds {}.",
                                fmt::join(cache.volumeSide.mounts, ", "), DirtyText(cache))};
    finding.details = DirtyFields(cache);
    finding.details.push_back({"mounts", "Mounted on", cache.volumeSide.mounts});
    for (const auto& mount : cache.volumeSide.mounts) {
        finding.commands.push_back(fmt::format("umount {}", Quoted(mount)));
    }
    finding.advice = fmt::format(
        "Unmount it before more is written, then see with \"vemocachectl doctor\" whether it was written "
        "already; if not, \"{}\" brings the cache up.",
        CommandOn("load", cache));
    return finding;
}

std::optional<Finding> WrittenOverClean(const CacheFacts& cache) {
    if (!WasWritten(cache) || MayBeDirty(cache)) {
        return std::nullopt;
    }
    Finding finding{"Its volume was written without its cache: the blocks on the SSD are stale."};
    finding.details = WrittenFields(cache);
    finding.commands = {CommandOn("status", cache)};
    finding.advice = fmt::format(
        "No block is dirty, so nothing is lost as long as the cache is not loaded with its stale blocks. "
        "\"vemocachectl wipe {} --discard-metadata\" and \"vemocachectl config remove {} --forget-cache\" "
        "end "
        "it; then create it anew.",
        Quoted(cache.ssd), Quoted(cache.name));
    return finding;
}

std::optional<Finding> MountedPast(const CacheFacts& cache) {
    if (!cache.IsUp() || cache.volumeSide.mounts.empty()) {
        return std::nullopt;
    }
    Finding finding{fmt::format("Its volume is mounted by itself on {} while the cache is up.",
                                fmt::join(cache.volumeSide.mounts, ", "))};
    finding.details = {{"mounts", "Mounted on", cache.volumeSide.mounts},
                       DeviceField("device", "To be used", cache.device)};
    for (const auto& mount : cache.volumeSide.mounts) {
        finding.commands.push_back(fmt::format("umount {}", Quoted(mount)));
    }
    finding.advice =
        fmt::format("Unmount it, check the file system, and mount {} in its place.", cache.device);
    return finding;
}

}  // namespace

std::vector<Check> VolumeChecks() {
    const std::vector<Source> needs = {Source::kConfiguration, Source::kTable, Source::kSuperblock,
                                       Source::kBlockList};
    return {
        {"VFC-D050", Severity::kCritical, DataLoss::kYes, "Volume written over dirty blocks",
         "After the cache was unloaded with dirty blocks, somebody wrote to the volume itself, as samples of "
         "it that were kept at the unloading show. The blocks on the SSD are older in part than the volume "
         "and "
         "newer in part: loading would overwrite new data with old, and wiping would lose what was never "
         "written back.",
         needs, WrittenOverDirty},
        {"VFC-D051", Severity::kCritical, DataLoss::kYes, "Volume mounted over dirty blocks",
         "The volume itself is mounted although its cache is not loaded and holds blocks that the volume has "
         "not. Programs see old data, and each write makes blocks of the cache stale.",
         needs, MountedOverDirty},
        {"VFC-D052",
         Severity::kWarning,
         DataLoss::kYes,
         "Volume written without its cache",
         "After the cache was unloaded without dirty blocks, somebody wrote to the volume itself. The volume "
         "is whole; but the clean blocks on the SSD are stale now, and loaded again, the cache would give "
         "old "
         "data for new.",
         {Source::kConfiguration, Source::kTable, Source::kSuperblock},
         WrittenOverClean},
        {"VFC-D053",
         Severity::kCritical,
         DataLoss::kYes,
         "Volume mounted past its running cache",
         "The volume is mounted by itself while its cache is up. Programs do not see what lies on the SSD "
         "alone, and what they write is overwritten when dirty blocks are written back.",
         {Source::kTable},
         MountedPast},
    };
}

}  // namespace cli
