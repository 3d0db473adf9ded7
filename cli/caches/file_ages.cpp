#include "caches/file_ages.h"

#include <fmt/format.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <utility>

#include "support/failure.h"
#include "vemoflashcache.h"

namespace cli {
namespace {

constexpr const char* kStatisticsFile = "/etc/flashcache_file_statistics";

std::uint64_t Number(const std::string& text) {
    return std::strtoull(text.c_str(), nullptr, 10);
}

// A pair such as "2026-11-24=12,49152" or "Level_3=4096".
void TakePair(AgedVolume& volume, const std::string& key, const std::string& value) {
    constexpr std::string_view kLevel = "Level_";
    if (key == "Time") {
        volume.time = value;
    } else if (key.starts_with(kLevel)) {
        const std::uint64_t level = Number(key.substr(kLevel.size()));
        if (level < kAgeLevels.size()) {
            volume.ages.push_back({"level", kAgeLevels.at(level), Value(), Number(value)});
        }
    } else if (const auto comma = value.find(','); comma != std::string::npos) {
        volume.ages.push_back({"day", key, Number(value), Number(value.substr(comma + 1))});
    }
}

std::vector<AgedVolume> ReadSections(std::ifstream& file) {
    std::vector<AgedVolume> volumes;
    for (std::string line; std::getline(file, line);) {
        const auto equals = line.find('=');
        if (line.starts_with('[') && line.ends_with(']')) {
            volumes.push_back({line.substr(1, line.size() - 2), "", {}});
        } else if (!volumes.empty() && equals != std::string::npos) {
            TakePair(volumes.back(), line.substr(0, equals), line.substr(equals + 1));
        }
    }
    return volumes;
}

AgedVolume ReadPlain() {
    std::array<FLASHCACHE_FILE_STAT_DAY, 7> days{};
    std::array<char, 1024> name{};
    std::array<char, 1024> time{};
    const Outcome outcome = Attempt([&] {
        return FlashcacheFileStatisticsGetAndParse(days.data(), static_cast<int>(days.size()), name.data(),
                                                   static_cast<int>(name.size()), time.data(),
                                                   static_cast<int>(time.size()));
    });
    if (outcome.result != 0) {
        throw LibraryFailure("the file statistics cannot be read", outcome,
                             "vemocachectl filestat run makes them anew");
    }
    AgedVolume volume{name.data(), time.data(), {}};
    for (const auto& day : days) {
        volume.ages.push_back({"day", fmt::format("{:04}-{:02}-{:02}", day.Year, day.Month, day.Day),
                               day.FileCount, day.FileSizeSum});
    }
    return volume;
}

// The share of a kind's bytes: levels hold all of a volume, days only its last week.
std::uint64_t Sum(const AgedVolume& volume, const std::string& kind) {
    std::uint64_t sum = 0;
    for (const auto& age : volume.ages) {
        sum += age.kind == kind ? age.bytes : 0;
    }
    return sum;
}

Record Describe(const AgedVolume& volume, const Age& age) {
    const std::uint64_t all = Sum(volume, age.kind);
    const double share = all == 0 ? 0.0 : 100.0 * static_cast<double>(age.bytes) / static_cast<double>(all);
    Record record{{{"id", "Volume", volume.id},
                   {"time", "Counted at", volume.time},
                   {"kind", "By", age.kind},
                   {"span", "Last touched", age.span},
                   {"files", "Files", age.files},
                   {"bytes", "On disk", age.bytes, Format::kBytes},
                   {"share_percent", "", share, Format::kBar}}};
    MayGiveWay(record, {"time", "kind", "share_percent", "files"});
    return record;
}

}  // namespace

std::string CountedAs(const std::string& mount) {
    std::error_code error;
    auto path = std::filesystem::absolute(mount, error).lexically_normal();
    // "/volume1/" has nothing behind its last slash.
    path = path.has_filename() ? path : path.parent_path();
    return path.filename();
}

std::vector<AgedVolume> ReadAgedVolumes() {
    std::ifstream file(kStatisticsFile);
    if (!file) {
        return {};
    }
    constexpr std::string_view kPlainStart = "Volume=";
    std::string start(kPlainStart.size(), '\0');
    file.read(start.data(), static_cast<std::streamsize>(start.size()));
    file.clear();
    file.seekg(0);
    return start == kPlainStart ? std::vector<AgedVolume>{ReadPlain()} : ReadSections(file);
}

std::vector<Record> ReadFileAges() {
    std::vector<Record> records;
    for (const auto& volume : ReadAgedVolumes()) {
        for (const auto& age : volume.ages) {
            records.push_back(Describe(volume, age));
        }
    }
    return records;
}

}  // namespace cli
