#include "advise/volume.h"

#include <fmt/format.h>

#include <algorithm>
#include <bit>

#include "caches/file_ages.h"
#include "caches/memory_need.h"
#include "caches/ssd_support.h"
#include "support/device.h"
#include "support/quoted.h"

namespace cli {
namespace {

// The bytes of the files that were last touched within these times.
struct HotBytes {
    std::uint64_t day = 0;
    std::uint64_t week = 0;
    std::optional<std::uint64_t> month;  // days tell of the last week alone
};

AgedVolume StatisticsOf(const std::string& mount) {
    const std::string id = CountedAs(mount);
    for (const auto& volume : ReadAgedVolumes()) {
        if (volume.id == id) {
            return volume;
        }
    }
    throw Failure{fmt::format("there are no file statistics of {}", mount), "its files were not counted yet",
                  fmt::format("vemocachectl filestat run {}", Quoted(mount)), std::nullopt,
                  FailureKind::kNotFound};
}

HotBytes HotBytesOf(const AgedVolume& volume) {
    HotBytes hot;
    bool hasLevels = false;
    for (const Age& age : volume.ages) {
        if (age.kind != "level") {
            continue;
        }
        hasLevels = true;
        const auto level = std::find(kAgeLevels.begin(), kAgeLevels.end(), age.span) - kAgeLevels.begin();
        hot.day += level == 0 ? age.bytes : 0;
        hot.week += level <= 1 ? age.bytes : 0;
        hot.month = hot.month.value_or(0) + (level <= 2 ? age.bytes : 0);
    }
    if (!hasLevels) {
        const auto latest = std::max_element(volume.ages.begin(), volume.ages.end(),
                                             [](const Age& a, const Age& b) { return a.span < b.span; });
        hot.day = latest == volume.ages.end() ? 0 : latest->bytes;
        for (const Age& age : volume.ages) {
            hot.week += age.bytes;
        }
    }
    return hot;
}

struct Ssd {
    std::string path;
    std::uint64_t bytes = 0;
    std::optional<bool> isSupported;
};

std::optional<Ssd> SsdAt(const std::string& path) {
    if (path.empty()) {
        return std::nullopt;
    }
    const auto bytes = DeviceSize(path);
    if (!bytes) {
        throw Failure{fmt::format("there is no SSD {}", path), "it is no block device that can be read",
                      "vemocachectl list shows the SSDs that have a cache", std::nullopt,
                      FailureKind::kNotFound};
    }
    return Ssd{path, *bytes, AreSupported(SupportOfDisks(path))};
}

std::string Sentence(const HotBytes& hot, const std::optional<Ssd>& ssd, std::uint64_t size) {
    if (hot.week == 0) {
        return "No file was touched in the last week: a cache would have nothing to hold.";
    }
    std::string text = fmt::format(
        "The files that were touched in the last week have {}: a cache of {} holds "
        "them all.",
        HumanSize(hot.week), HumanSize(size));
    if (ssd && ssd->bytes < hot.day) {
        text += fmt::format(" The SSD {} is too small even for those of the last day.", ssd->path);
    } else if (ssd && ssd->bytes < size) {
        text += fmt::format(" The SSD {} has {}, enough for those of the last day.", ssd->path,
                            HumanSize(ssd->bytes));
    }
    if (ssd && ssd->isSupported == false) {
        text += " That SSD is not supported on this appliance.";
    }
    return text +
           " Files are counted whole, however little of them was read; recorded traffic tells more: "
           "\"vemocachectl advise trace\".";
}

}  // namespace

// A size that SSDs come in.
Answer AdviseOnVolume(const std::string& mount, const std::string& ssdPath) {
    constexpr std::uint64_t kSmallest = std::uint64_t{64} << 20U;
    const AgedVolume volume = StatisticsOf(mount);
    const HotBytes hot = HotBytesOf(volume);
    const auto ssd = SsdAt(ssdPath);
    const std::uint64_t size =
        std::bit_ceil(std::max(std::min(hot.week, std::uint64_t{1} << 62U), kSmallest));
    const std::uint64_t fits = ssd ? std::min(size, ssd->bytes) : size;
    Answer answer = One(
        "volume",
        Record{
            {{"id", "Volume", volume.id},
             {"time", "Counted at", KnownText(volume.time)},
             {"advice", "Advice", Sentence(hot, ssd, size), Format::kSentence},
             {"hot_day_bytes", "Touched in a day", hot.day, Format::kBytes, true},
             {"hot_week_bytes", "Touched in a week", hot.week, Format::kBytes},
             {"hot_month_bytes", "Touched in a month", hot.month ? Value(*hot.month) : Value(),
              Format::kBytes},
             {"size_bytes", "Size", hot.week == 0 ? Value() : Value(fits), Format::kBytes, true},
             {"memory_bytes", "Kernel memory",
              hot.week == 0 ? Value() : Value(MemoryOfCache(FLASHCACHE_VERSION_NEW, fits)), Format::kBytes},
             {"ssd", "SSD", ssd ? Value(ssd->path) : Value()},
             {"ssd_bytes", "SSD has", ssd ? Value(ssd->bytes) : Value(), Format::kBytes},
             {"ssd_supported", "SSD supported here", KnownFlag(ssd ? ssd->isSupported : std::nullopt)}}});
    answer.remark = "files outside the shares are not counted, except those of packages and iSCSI LUNs";
    return answer;
}

}  // namespace cli
