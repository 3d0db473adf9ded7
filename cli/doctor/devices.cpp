// The devices of a cache: whether they are there, large enough and supported.
#include <fmt/ranges.h>

#include "doctor/check.h"
#include "doctor/parts.h"

namespace cli {
namespace {

std::optional<Finding> MissingSsd(const CacheFacts& cache) {
    if (cache.ssd.empty() || cache.ssdSide.isThere) {
        return std::nullopt;
    }
    Finding finding{fmt::format("Its SSD {} is not there.", cache.ssd)};
    finding.details = {DeviceField("ssd", "SSD", cache.ssd)};
    finding.dataLoss = cache.MayHoldDirty() ? DataLoss::kYes : DataLoss::kNo;
    finding.severity = cache.MayHoldDirty() ? Severity::kCritical : Severity::kWarning;
    finding.commands = {"lsblk", "dmesg | tail -n 50"};
    finding.advice = fmt::format(
        "Bring the SSD back, and leave the volume alone until then. If it is lost with all that it holds: "
        "\"vemocachectl config remove {} --forget-cache\" forgets the cache.",
        Quoted(cache.name));
    return finding;
}

std::optional<Finding> MissingVolume(const CacheFacts& cache) {
    if (cache.volume.empty() || cache.volumeSide.isThere) {
        return std::nullopt;
    }
    Finding finding{fmt::format("Its volume {} is not there.", cache.volume)};
    finding.details = DirtyFields(cache);
    finding.details.push_back(DeviceField("volume", "Volume", cache.volume));
    finding.dataLoss = cache.DirtyBlocks() == 0U ? DataLoss::kNo : DataLoss::kUnknown;
    finding.commands = {"lsblk", "dmesg | tail -n 50"};
    finding.advice = "Bring the volume back; its dirty blocks wait on the SSD.";
    return finding;
}

std::optional<Finding> WronglyMarkedMissing(const CacheFacts& cache) {
    const bool ssd = cache.entry && cache.entry->ssdMarkedMissing && cache.ssdSide.isThere;
    const bool volume = cache.entry && cache.entry->volumeMarkedMissing && cache.volumeSide.isThere;
    if (!ssd && !volume) {
        return std::nullopt;
    }
    Finding finding{fmt::format("Its {} is marked as missing, but is there.", ssd && volume
                                                                                  ? "SSD and its volume"
                                                                              : ssd ? "SSD"
                                                                                    : "volume")};
    finding.commands = {CommandOn("config correct", cache)};
    finding.advice = "The command takes the mark out of the entry.";
    return finding;
}

std::optional<Finding> UnsupportedSsd(const CacheFacts& cache) {
    if (cache.ssdSide.unsupported.empty()) {
        return std::nullopt;
    }
    Finding finding{fmt::format("Its SSD {} is not supported on this appliance: {}.", cache.ssd,
                                fmt::join(cache.ssdSide.unsupported, ", "))};
    finding.details = {DeviceField("ssd", "SSD", cache.ssd), {"models", "Models", cache.ssdSide.unsupported}};
    finding.count = cache.ssdSide.unsupported.size();
    finding.commands = {"vemocachectl ssd list"};
    finding.advice = "The database may be old: \"vemocachectl ssd update\" fetches a new one.";
    return finding;
}

// What cache device and volume differ by; nothing when one of them is not known.
std::optional<std::int64_t> Growth(const CacheFacts& cache) {
    if (!cache.kernel || !cache.kernel->bytes || !cache.volumeSide.bytes) {
        return std::nullopt;
    }
    return static_cast<std::int64_t>(*cache.volumeSide.bytes) -
           static_cast<std::int64_t>(*cache.kernel->bytes);
}

std::vector<Field> SizeFields(const CacheFacts& cache) {
    return {Number("volume_bytes", "Volume", cache.volumeSide.bytes, Format::kBytes),
            Number("device_bytes", "Cache device", cache.kernel->bytes, Format::kBytes)};
}

std::optional<Finding> GrownVolume(const CacheFacts& cache) {
    if (Growth(cache).value_or(0) <= 0) {
        return std::nullopt;
    }
    Finding finding{"Its volume is larger than its cache device."};
    finding.details = SizeFields(cache);
    finding.commands = {CommandOn("expand", cache)};
    finding.advice = "The file system on the cache device can grow when that has.";
    return finding;
}

std::optional<Finding> ShrunkVolume(const CacheFacts& cache) {
    if (Growth(cache).value_or(0) >= 0) {
        return std::nullopt;
    }
    Finding finding{"Its volume has shrunk below the size of its cache device."};
    finding.details = SizeFields(cache);
    finding.commands = {fmt::format("lsblk {}", Quoted(cache.volume))};
    finding.advice =
        "What lies past the end of the volume cannot be written back. Bring the volume to its former size "
        "before anything is flushed.";
    return finding;
}

}  // namespace

std::vector<Check> DeviceChecks() {
    return {
        {"VFC-D030",
         Severity::kCritical,
         DataLoss::kUnknown,
         "The SSD of a cache is missing",
         "The block device that is the cache's SSD does not exist: it was taken out, has failed, or its RAID "
         "was not assembled. A write-back cache may have blocks there that never reached the volume. If the "
         "volume is used without them, it holds old data, and a file system on it may be damaged.",
         {Source::kConfiguration},
         MissingSsd},
        {"VFC-D031",
         Severity::kCritical,
         DataLoss::kUnknown,
         "The volume of a cache is missing",
         "The block device that the cache stands in front of does not exist: its disks, its RAID or its "
         "volume "
         "group were not brought up. Dirty blocks cannot be written back meanwhile.",
         {Source::kConfiguration},
         MissingVolume},
        {"VFC-D032",
         Severity::kInfo,
         DataLoss::kNo,
         "Marked as missing, but there",
         "The entry has the mark with which the management programs note that a device of the cache is "
         "missing, and the device is there. It came back, or the mark was set by mistake. Programs that go "
         "by "
         "the mark do not load the cache.",
         {Source::kConfiguration},
         WronglyMarkedMissing},
        {"VFC-D033",
         Severity::kWarning,
         DataLoss::kUnknown,
         "The SSD is not supported",
         "The compatibility database does not support a disk that the cache's SSD consists of on this "
         "appliance and build, by its model and size as the kernel tells them. Such an SSD may work; but it "
         "may also lose what it was given when the power fails. Disks without a model are not judged.",
         {Source::kDatabase},
         UnsupportedSsd},
        {"VFC-D034",
         Severity::kWarning,
         DataLoss::kNo,
         "The volume is larger than its cache",
         "The volume was enlarged, and the cache device in front of it was not. All works, but what was "
         "added "
         "cannot be used until the cache device has grown, too.",
         {Source::kTable},
         GrownVolume},
        {"VFC-D035",
         Severity::kCritical,
         DataLoss::kYes,
         "The volume has shrunk below its cache",
         "The volume is smaller than the cache device in front of it. Blocks beyond its end can be read from "
         "the SSD at most, and when they are dirty, they cannot be written back.",
         {Source::kTable},
         ShrunkVolume},
    };
}

}  // namespace cli
