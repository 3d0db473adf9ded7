// Which caches are configured, and which are up.
#include "doctor/check.h"
#include "doctor/parts.h"

namespace cli {
namespace {

bool IsVolumeInUse(const CacheFacts& cache) {
    return !cache.volumeSide.mounts.empty() || cache.volumeSide.since.volume == SinceUnload::Volume::kWritten;
}

std::optional<Finding> NotUp(const CacheFacts& cache) {
    if (!cache.entry || !cache.entry->isLoaded || cache.entry->isUnfinished || !cache.IsKnownDown() ||
        cache.mayBeChanging) {
        return std::nullopt;
    }
    Finding finding{"The cache is recorded as loaded, but it is not up."};
    finding.details = DirtyFields(cache);
    finding.dataLoss = cache.DirtyBlocks() == 0U ? DataLoss::kNo : DataLoss::kYes;
    if (!IsVolumeInUse(cache)) {
        finding.commands = {CommandOn("load", cache)};
    }
    finding.advice = "Do not use its volume before it is loaded: what lies on the SSD alone would be stale.";
    return finding;
}

std::optional<Finding> DirtyAndDown(const CacheFacts& cache) {
    const auto dirty = cache.DirtyBlocks();
    const bool isKept = dirty && *dirty > 0;
    // What its volume's use makes of it is told by other checks.
    if (!cache.entry || cache.entry->isLoaded || !cache.IsKnownDown() || !isKept || IsVolumeInUse(cache)) {
        return std::nullopt;
    }
    Finding finding{fmt::format("The cache is not loaded, and its SSD holds {}.", DirtyText(cache))};
    finding.details = DirtyFields(cache);
    finding.count = *dirty;
    finding.commands = {CommandOn("load", cache)};
    finding.advice = fmt::format(
        "Load it before the volume is used: once {} is written without it, these blocks are stale.",
        cache.volume);
    return finding;
}

std::optional<Finding> NotConfigured(const CacheFacts& cache) {
    if (!cache.IsUp() || cache.entry || cache.entryIsUnknown || cache.mayBeChanging) {
        return std::nullopt;
    }
    Finding finding{"The cache runs, but no entry configures it."};
    finding.details = {DeviceField("ssd", "SSD", cache.ssd), DeviceField("volume", "Volume", cache.volume)};
    finding.commands = {CommandOn("config adopt", cache)};
    finding.advice = "Without an entry it can neither be flushed nor loaded after a restart.";
    return finding;
}

std::optional<Finding> Unfinished(const CacheFacts& cache) {
    if (!cache.entry || !cache.entry->isUnfinished || cache.mayBeUp || cache.mayBeChanging) {
        return std::nullopt;
    }
    const bool isThere = cache.IsUp() || (cache.ssdSide.content && !cache.ssdSide.isOfOtherVolume);
    Finding finding{"Its creation did not finish."};
    if (isThere) {
        finding.commands = {CommandOn("load", cache)};
        finding.advice = "The cache itself is there: loading finishes what was left undone.";
    } else {
        finding.commands = {CommandOn("config show", cache)};
        finding.advice = fmt::format(
            "Nothing but its entry is there: \"vemocachectl config remove {} --forget-cache\" undoes it.",
            Quoted(cache.name));
    }
    return finding;
}

std::optional<Finding> RecordedAsDown(const CacheFacts& cache) {
    if (!cache.IsUp() || !cache.entry || cache.entry->isLoaded || cache.entry->isUnfinished ||
        cache.mayBeChanging) {
        return std::nullopt;
    }
    Finding finding{"The cache is up, but recorded as not loaded."};
    finding.commands = {CommandOn("load", cache)};
    finding.advice = "The command mends the record and leaves the running cache as it is.";
    return finding;
}

}  // namespace

std::vector<Check> PresenceChecks() {
    return {
        {"VFC-D010",
         Severity::kWarning,
         DataLoss::kUnknown,
         "Configured, but not loaded",
         "The entry says that the cache is loaded, but the kernel has no such device: it was not brought up "
         "after a restart, or somebody took it down without this tool. Its volume works without it, but what "
         "was written to the cache and not yet to the volume is missing there. Whoever uses the volume now "
         "makes the blocks on the SSD stale. An unloading in order is recorded and raises nothing.",
         {Source::kConfiguration, Source::kTable},
         NotUp},
        {"VFC-D011",
         Severity::kWarning,
         DataLoss::kYes,
         "Unloaded with dirty blocks",
         "The cache was unloaded in order, but blocks lie on its SSD that never reached the volume. They are "
         "safe there as long as nobody writes to the volume by itself, and come back with the next loading. "
         "To have none next time: flush before unloading.",
         {Source::kConfiguration, Source::kTable, Source::kSuperblock, Source::kBlockList},
         DirtyAndDown},
        {"VFC-D012",
         Severity::kWarning,
         DataLoss::kUnknown,
         "Loaded, but not configured",
         "The kernel runs a cache that no entry of the configuration names. It works, but a flush keeps its "
         "state in the entry, so it cannot be flushed; and nobody loads it after a restart, when the volume "
         "would be used without the blocks that lie on the SSD alone.",
         {Source::kConfiguration, Source::kTable},
         NotConfigured},
        {"VFC-D013",
         Severity::kWarning,
         DataLoss::kNo,
         "A creation did not finish",
         "The entry is marked as that of a cache whose creation is under way, and none is: it was killed or "
         "the power failed. What the kernel or the SSD has of it can be finished by loading; where there is "
         "nothing, the entry alone is left to be forgotten.",
         {Source::kConfiguration, Source::kTable},
         Unfinished},
        {"VFC-D014",
         Severity::kInfo,
         DataLoss::kNo,
         "Loaded, but recorded as not loaded",
         "The cache runs, but its entry says that it is not loaded: a loading was ended after the device "
         "came "
         "up, or somebody brought it up without this tool.",
         {Source::kConfiguration, Source::kTable},
         RecordedAsDown},
    };
}

}  // namespace cli
