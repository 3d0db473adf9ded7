#include "caches/running.h"

#include <fmt/format.h>
#include <glob.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "platform/vemocore.h"
#include "support/device.h"

namespace cli {
namespace {

constexpr const char* kDevicePattern = "/dev/mapper/cachedev*";
constexpr const char* kTableTool = "/sbin/dmsetup";

std::vector<std::string> DevicePaths() {
    std::vector<std::string> paths;
    glob_t found{};
    if (glob(kDevicePattern, 0, nullptr, &found) == 0) {
        paths.assign(found.gl_pathv, found.gl_pathv + found.gl_pathc);
    }
    globfree(&found);
    return paths;
}

// Of one device; of all when it is null, each below its name: "cachedev_0: 0 2097152 flashcache conf:".
std::string TableOf(const char* device) {
    const std::unique_ptr<FILE, int (*)(FILE*)> stream(
        VLIBCPopen(kTableTool, "r", "table", device, static_cast<char*>(nullptr)), VLIBCPclose);
    std::string table;
    std::array<char, 4096> buffer{};
    while (stream) {
        const std::size_t size = std::fread(buffer.data(), 1, buffer.size(), stream.get());
        if (size == 0) {
            break;
        }
        table.append(buffer.data(), size);
    }
    return table;
}

// The text in the parentheses that follow `label`, which `rest` loses with all before its end.
std::optional<std::string> TakeBracketed(std::string_view& rest, std::string_view label) {
    const auto at = rest.find(label);
    const auto open = at == std::string_view::npos ? at : rest.find('(', at);
    const auto close = open == std::string_view::npos ? open : rest.find(')', open);
    if (close == std::string_view::npos) {
        return std::nullopt;
    }
    std::string text(rest.substr(open + 1, close - open - 1));
    rest.remove_prefix(close);
    return text;
}

std::optional<std::int32_t> ModeOf(const std::optional<std::string>& text) {
    if (text == "WRITE_BACK") {
        return FLASHCACHE_WRITE_BACK;
    }
    if (text == "WRITE_THROUGH") {
        return FLASHCACHE_WRITE_THRU;
    }
    if (text == "WRITE_AROUND") {
        return FLASHCACHE_WRITE_AROUND;
    }
    return std::nullopt;
}

// The number before this unit; nothing when the text is not of that form.
std::optional<std::uint64_t> NumberIn(const std::optional<std::string>& text, std::string_view unit) {
    std::uint64_t number = 0;
    const char* last = text ? text->data() + text->size() : nullptr;
    const auto [end, error] = std::from_chars(text ? text->data() : nullptr, last, number);
    const bool isWhole = text && error == std::errc() && std::string_view(end, last) == unit;
    return isWhole ? std::optional(number) : std::nullopt;
}

// The part of a text of all tables that is the device's; empty when there is none.
std::string_view TableIn(std::string_view tables, std::string_view device) {
    const std::string head = fmt::format("{}: ", device.substr(device.rfind('/') + 1));
    while (!tables.empty()) {
        // Lines of a table that follow its first begin with a tab.
        std::size_t end = tables.find('\n');
        while (end != std::string_view::npos && tables.substr(end + 1).starts_with('\t')) {
            end = tables.find('\n', end + 1);
        }
        end = std::min(end, tables.size() - 1) + 1;
        if (tables.starts_with(head)) {
            return tables.substr(0, end);
        }
        tables.remove_prefix(end);
    }
    return {};
}

// With one program for all of them. What is not in its text, or not whole, is asked for itself.
std::vector<RunningCache> LookAtTables(const std::vector<std::string>& devices) {
    const std::string tables = devices.empty() ? "" : TableOf(nullptr);
    std::vector<RunningCache> running;
    for (const auto& device : devices) {
        RunningCache cache;
        cache.device = device;
        cache.pair = PairIn(TableIn(tables, device));
        if (!cache.pair) {
            cache.pair = PairIn(TableOf(device.c_str()));
        }
        running.push_back(std::move(cache));
    }
    return running;
}

RunningCache Look(const std::string& device) {
    RunningCache cache;
    cache.device = device;
    FLASHCACHE_STAT_SEARCH search{};
    search.type = FLASHCACHE_SEARCH_BY_CACHE_DEV_PATH;
    search.CacheDevPath = cache.device.c_str();
    FLASHCACHE_STAT* stat = nullptr;
    const Outcome outcome = Attempt([&] { return VEMOFlashCacheStatGet(&search, &stat); });
    cache.stat.reset(stat);
    cache.statError = outcome.slot;
    if (cache.stat) {
        cache.pair = Pair{cache.stat->SSDDevPath,  cache.stat->SpacePath,
                          cache.stat->WriteMode,   static_cast<std::uint64_t>(cache.stat->BlockSizeKB) * 1024,
                          cache.stat->TotalBlocks, cache.stat->CachedBlocks};
    } else {
        cache.pair = PairIn(TableOf(device.c_str()));
    }
    return cache;
}

}  // namespace

std::optional<Pair> PairIn(std::string_view table) {
    auto ssd = TakeBracketed(table, "\tssd dev");
    auto volume = TakeBracketed(table, "disk dev");
    if (!ssd || !volume || ssd->empty() || volume->empty()) {
        return std::nullopt;
    }
    Pair pair{std::move(*ssd), std::move(*volume), ModeOf(TakeBracketed(table, "cache mode")), 0, {}, {}};
    pair.blockSize = NumberIn(TakeBracketed(table, "data block size"), "K").value_or(0) * 1024;
    pair.blocks = NumberIn(TakeBracketed(table, "total blocks"), "");
    pair.cachedBlocks = NumberIn(TakeBracketed(table, "cached blocks"), "");
    return pair;
}

std::vector<RunningCache> RunningCaches(bool withStatus) {
    std::vector<std::string> devices = DevicePaths();
    // A plain file of that name is no cache device.
    std::erase_if(devices, [](const std::string& device) { return !IsBlockDevice(device); });
    if (!withStatus) {
        return LookAtTables(devices);
    }
    std::vector<RunningCache> running(devices.size());
    std::transform(devices.begin(), devices.end(), running.begin(), Look);
    return running;
}

std::string KernelName(const std::string& ssd, const std::string& volume) {
    const std::unique_ptr<char, decltype(&std::free)> name(
        VEMOFlashCacheSysctlDevNameGet(ssd.c_str(), volume.c_str()), std::free);
    return name ? name.get() : "";
}

Place PlaceOf(const std::string& ssd, const std::string& volume) {
    Place place{"", true};
    for (const auto& cache : RunningCaches()) {
        if (!cache.pair) {
            place.isKnown = false;
        } else if (SameDevice(cache.pair->ssd, ssd) && SameDevice(cache.pair->volume, volume)) {
            return {cache.device, true};
        }
    }
    return place;
}

std::string PlaceText(const Place& place) {
    return !place.device.empty() ? "is still up" : place.isKnown ? "is down" : "may be up or down";
}

std::string LibraryFinds(const std::string& path) {
    std::array<char, 64> device{};
    const int found =
        VEMOFlashcacheGetCachePath(path.c_str(), device.data(), static_cast<int>(device.size()));
    return found == 1 ? device.data() : "";
}

}  // namespace cli
