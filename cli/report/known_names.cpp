#include "report/known_names.h"

#include <algorithm>
#include <array>
#include <functional>
#include <sstream>

#include "caches/running.h"

namespace cli {
namespace {

// The words between "=" or "," in the list of serial numbers.
void AddSerials(const std::string& text, StandIns& standIns) {
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        constexpr std::string_view kBetween = "=\", \t\r";
        const auto equals = line.find('=');
        for (auto at = line.find_first_not_of(kBetween, equals); at != std::string::npos;) {
            const auto end = std::min(line.find_first_of(kBetween, at), line.size());
            standIns.Add(StandIns::Kind::kSerial, line.substr(at, end - at));
            at = line.find_first_not_of(kBetween, end);
        }
    }
}

// What entries tell beyond the devices; damaged ones, too.
void AddEntries(const std::string& text, StandIns& standIns) {
    using enum StandIns::Kind;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        const auto equals = line.find('=');
        const auto first = line.find_first_not_of(" \t");
        const auto start = equals == std::string::npos ? equals : line.find_first_not_of(" \t\"", equals + 1);
        if (start == std::string::npos) {
            continue;
        }
        const std::string key = line.substr(first, line.find_first_of(" \t=", first) - first);
        const std::string value =
            line.substr(start, line.find_last_not_of(" \t\"\r") + 1 - std::min(start, line.size()));
        // A shorter one would be found in too many places.
        constexpr std::size_t kShortestId = 4;
        if (key == "SSDDevPath") {
            standIns.AddDevice(kSsd, value);
        } else if (key == "SpacePath") {
            standIns.AddDevice(kVolume, value);
        } else if (key == "ReferencePath") {
            standIns.AddMount(value);
        } else if ((key == "SSDUUID" || key == "SSDID") && value.size() >= kShortestId) {
            standIns.Add(kId, value);
        }
    }
}

void AddPins(const std::string& text, StandIns& standIns) {
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with("[/") && line.ends_with(']')) {
            standIns.AddMount(line.substr(1, line.size() - 2));
        }
    }
}

// The SSD and the volume of a path such as "md3+volume_1/flashcache_stats": of a cache that the kernel alone
// tells.
void AddPair(const std::string& path, StandIns& standIns) {
    const std::string pair = path.substr(0, path.find('/'));
    const auto plus = pair.find('+');
    if (plus != std::string::npos) {
        standIns.Add(StandIns::Kind::kSsd, pair.substr(0, plus));
        standIns.Add(StandIns::Kind::kVolume, pair.substr(plus + 1));
    }
}

constexpr std::string_view kPairs = "/proc/flashcache/";

// Calls `take` with what follows each `start` in the text, up to what ends a name there.
void ForEachAfter(std::string_view text, std::string_view start,
                  const std::function<void(const std::string& rest)>& take) {
    for (auto at = text.find(start); at != std::string_view::npos; at = text.find(start, at)) {
        at += start.size();
        std::string_view rest = text.substr(at);
        rest = rest.substr(0, rest.find_first_of(" \t\n\r\"'`()[]<>,;:=|"));
        while (rest.ends_with('.') || rest.ends_with('/')) {
            rest.remove_suffix(1);
        }
        take(std::string(rest));
    }
}

bool IsNumber(std::string_view text) {
    return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

// Devices, volumes and mounts that no cache has any more are told all the same: the log goes back to when one
// had.
void AddFormer(const std::string& text, StandIns& standIns) {
    constexpr std::array<std::string_view, 8> kCommon = {"null", "zero",  "log",    "shm",
                                                         "pts",  "stdin", "stdout", "mapper/control"};
    ForEachAfter(text, "/dev/", [&](const std::string& path) {
        const bool isCommon = std::find(kCommon.begin(), kCommon.end(), path) != kCommon.end();
        if (!isCommon && !path.starts_with("mapper/cachedev") && path.find("..") == std::string::npos) {
            standIns.AddDevice(StandIns::Kind::kDisk, path);
        }
    });
    for (const std::string_view start : {kPairs, std::string_view("flashcache_")}) {
        ForEachAfter(text, start, [&](const std::string& pair) {
            // "dev.flashcache_md3+volume_1.do_sync"
            AddPair(start == kPairs ? pair : pair.substr(0, pair.find('.')), standIns);
        });
    }
    ForEachAfter(text, "/volume", [&](const std::string& rest) {
        const std::string number = rest.substr(0, rest.find('/'));
        if (IsNumber(number)) {
            standIns.AddMount("/volume" + number);
        }
    });
}

}  // namespace

StandIns StandInsFor(const Collected& all) {
    using enum StandIns::Kind;
    StandIns standIns;
    for (const auto& cache : all.facts.caches) {
        standIns.AddDevice(kSsd, cache.ssd);
        standIns.AddDevice(kVolume, cache.volume);
        if (const auto& content = cache.ssdSide.content) {
            standIns.AddDevice(kSsd, content->ssd);
            standIns.AddDevice(kVolume, content->volume);
        }
        for (const auto& mount : cache.volumeSide.mounts) {
            standIns.AddMount(mount);
        }
        if (cache.entry) {
            standIns.AddMount(cache.entry->mountPath);
            if (cache.name != KernelName(cache.ssd, cache.volume)) {
                standIns.Add(kCache, cache.name);
            }
        }
    }
    for (const auto& [folder, device] : all.mounts) {
        standIns.AddMount(folder);
    }
    for (const auto& item : all.items) {
        if (item.name.ends_with("/flashcache.conf")) {
            AddEntries(item.text, standIns);
        } else if (item.name.ends_with("_sn_list.conf")) {
            AddSerials(item.text, standIns);
        } else if (item.name.starts_with(kPairs)) {
            AddPair(item.name.substr(kPairs.size()), standIns);
        } else if (item.name.ends_with("_pin_file.conf")) {
            AddPins(item.text, standIns);
        }
    }
    for (const auto& item : all.items) {
        AddFormer(item.text, standIns);
    }
    for (const auto& line : all.log) {
        AddFormer(line, standIns);
    }
    if (all.host != "localhost" && all.host != "(none)") {
        standIns.Add(kHost, all.host);
    }
    return standIns;
}

}  // namespace cli
