// What the SSD tells of its cache, held against the entry and the kernel.
#include "caches/describe_entry.h"
#include "doctor/check.h"
#include "doctor/parts.h"

namespace cli {
namespace {

std::optional<Finding> OtherVolume(const CacheFacts& cache) {
    if (!cache.ssdSide.isOfOtherVolume || !cache.ssdSide.content) {
        return std::nullopt;
    }
    Finding finding{fmt::format("Its SSD {} holds a cache of another volume, {}.", cache.ssd,
                                cache.ssdSide.content->volume)};
    finding.details = {
        DeviceField("ssd", "SSD", cache.ssd), DeviceField("volume", "Volume", cache.volume),
        DeviceField("volume_on_ssd", "Volume on SSD", cache.ssdSide.content->volume),
        Number("dirty_blocks_on_ssd", "Dirty blocks on SSD", cache.ssdSide.content->dirtyBlocks)};
    finding.commands = {fmt::format("vemocachectl probe {}", Quoted(cache.ssd)),
                        CommandOn("config show", cache)};
    finding.advice =
        "See which SSD is in the slot, and whether volumes were renamed. Create no cache on it and wipe it "
        "not "
        "before that is clear.";
    return finding;
}

std::optional<Finding> NoCacheThere(const CacheFacts& cache) {
    const auto& ssd = cache.ssdSide;
    const bool isBeingMade = cache.entry && cache.entry->isUnfinished;
    if (!ssd.isThere || ssd.content || ssd.isOfUnknownLayout || isBeingMade || cache.mayBeUp ||
        cache.mayBeChanging) {
        return std::nullopt;
    }
    Finding finding{fmt::format("Its SSD {} shows no cache.", cache.ssd)};
    finding.details = {DeviceField("ssd", "SSD", cache.ssd)};
    finding.dataLoss = cache.MayHoldDirty() ? DataLoss::kYes : DataLoss::kNo;
    finding.commands = {fmt::format("vemocachectl probe {}", Quoted(cache.ssd))};
    if (cache.IsUp()) {
        finding.commands.push_back(CommandOn("flush", cache));
        finding.advice = "The cache still runs, but would not come up again: flush it while it does.";
    } else {
        finding.advice = fmt::format(
            "See that the right SSD is in place. If the cache was wiped on purpose: \"vemocachectl config "
            "remove {} --forget-cache\" forgets it.",
            Quoted(cache.name));
    }
    return finding;
}

std::optional<Finding> OtherFormat(const CacheFacts& cache) {
    const auto& content = cache.ssdSide.content;
    if (!cache.entry || !content || cache.ssdSide.isOfOtherVolume || content->format == cache.entry->format) {
        return std::nullopt;
    }
    const Value is = VersionText(content->format);
    const Value configured = VersionText(cache.entry->format);
    Finding finding{fmt::format("The cache on its SSD has the format {}, and the entry says {}.",
                                ToText({"", "", is}), ToText({"", "", configured}))};
    finding.details = {{"format", "Format on SSD", is}, {"configured_format", "Configured", configured}};
    finding.commands = {CommandOn("config correct", cache)};
    finding.advice = "The command makes the entry tell the format that the SSD has.";
    return finding;
}

std::optional<Finding> NotInOrder(const CacheFacts& cache) {
    const auto& content = cache.ssdSide.content;
    if (!cache.entry || !content || cache.ssdSide.isOfOtherVolume || content->inOrder ||
        !cache.IsKnownDown() || cache.entry->isUnfinished || cache.mayBeChanging) {
        return std::nullopt;
    }
    Finding finding{"Its cache device was not taken down in order."};
    finding.details = DirtyFields(cache);
    finding.dataLoss = cache.MayHoldDirty() ? DataLoss::kUnknown : DataLoss::kNo;
    if (cache.volumeSide.mounts.empty()) {
        finding.commands = {CommandOn("load", cache)};
    }
    finding.advice =
        "The power failed, or the system went down with the cache up. What was written and synced before is "
        "on the SSD; check the file system after loading.";
    return finding;
}

}  // namespace

std::vector<Check> SuperblockChecks() {
    return {
        {"VFC-D040",
         Severity::kCritical,
         DataLoss::kYes,
         "The SSD holds another volume's cache",
         "The superblock on the SSD says that its cache stands in front of another volume than the entry or "
         "the kernel says: SSDs were exchanged, volumes renamed, or the entry changed by hand. Loaded so, "
         "blocks of one volume would hide those of another; the tool refuses it. Wiping the SSD would lose "
         "what the other volume's cache holds alone.",
         {Source::kConfiguration, Source::kSuperblock},
         OtherVolume},
        {"VFC-D041",
         Severity::kCritical,
         DataLoss::kUnknown,
         "The SSD shows no cache",
         "The SSD is there, but what is at its beginning is no cache's superblock: it was wiped or "
         "overwritten, or it is another SSD. A cache that runs keeps running, but cannot be loaded again; "
         "what "
         "lies on the SSD alone would be lost with the next restart.",
         {Source::kConfiguration, Source::kSuperblock},
         NoCacheThere},
        {"VFC-D042",
         Severity::kWarning,
         DataLoss::kNo,
         "Another format than configured",
         "The entry says that the cache has another format (the version of its metadata, which goes with the "
         "size of its blocks) than its SSD shows. Memory is reckoned wrongly, and programs take it for a "
         "cache "
         "that can or cannot pin files.",
         {Source::kConfiguration, Source::kSuperblock},
         OtherFormat},
        {"VFC-D043",
         Severity::kWarning,
         DataLoss::kUnknown,
         "Not taken down in order",
         "The superblock has no mark of an end in order, and the cache is not up: the power failed or the "
         "system crashed. Clean blocks are not trusted by the next loading and must be read anew; dirty ones "
         "are kept.",
         {Source::kConfiguration, Source::kTable, Source::kSuperblock},
         NotInOrder},
    };
}

}  // namespace cli
