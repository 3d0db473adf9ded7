#include "simulation/launcher/reported_state.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "base/ssd_layout.h"
#include "simulation/kernel/kernel.h"
#include "simulation/kernel/model.h"

namespace simulation {

namespace {

using Json = nlohmann::json;

constexpr int kReportVersion = 1;
constexpr uint64_t kMostBlocks = uint64_t{32} << 20;  // of a cache that is up: each takes some memory
constexpr uid_t kSomebody = 65534;

// Findings whose causes can be brought about. The others hang on what only the real appliance has: processes
// that hold locks or flush, disks' models, what a volume's blocks were, devices that do not answer.
constexpr std::array<std::string_view, 35> kRebuilt = {
    "VFC-D001", "VFC-D002", "VFC-D003", "VFC-D004", "VFC-D010", "VFC-D011", "VFC-D012",
    "VFC-D013", "VFC-D014", "VFC-D020", "VFC-D021", "VFC-D022", "VFC-D030", "VFC-D031",
    "VFC-D032", "VFC-D034", "VFC-D040", "VFC-D041", "VFC-D042", "VFC-D043", "VFC-D060",
    "VFC-D062", "VFC-D063", "VFC-D070", "VFC-D071", "VFC-D072", "VFC-D080", "VFC-D081",
    "VFC-D082", "VFC-D090", "VFC-D092", "VFC-D093", "VFC-D094", "VFC-D095", "VFC-D101"};
constexpr std::array<std::string_view, 6> kRebuiltUnread = {"VFC-D104", "VFC-D105", "VFC-D106",
                                                            "VFC-D107", "VFC-D109", "VFC-D112"};

std::string TextIn(const Json& json, const char* key) {
    const auto found = json.find(key);
    return found != json.end() && found->is_string() ? found->get<std::string>() : "";
}

uint64_t NumberIn(const Json& json, const char* key) {
    const auto found = json.find(key);
    return found != json.end() && found->is_number_unsigned() ? found->get<uint64_t>() : 0;
}

bool IsIn(const Json& json, const char* key) {
    const auto found = json.find(key);
    return found != json.end() && found->is_boolean() && found->get<bool>();
}

std::string LastPart(const std::string& path) {
    return path.substr(path.rfind('/') + 1);
}

bool IsPlainPath(const std::string& path) {
    return path.starts_with('/') && path.find("/..") == std::string::npos;
}

template <size_t Size>
bool Has(const std::array<std::string_view, Size>& names, std::string_view name) {
    return std::find(names.begin(), names.end(), name) != names.end();
}

class ReportReader {
  public:
    explicit ReportReader(const Json& report) : report_(report) {}

    ReportedState Read() {
        CheckFindings();
        for (const Json& cache : report_.at("caches")) {
            ReadCache(cache);
        }
        ReadFiles();
        ReadModules();
        for (const Json& mount : report_.at("appliance").at("mounts")) {
            const std::string folder = TextIn(mount, "folder");
            if (IsPlainPath(folder) && folder.size() > 1) {
                state_.mounts.push_back(folder);
            }
        }
        const Json* memory = ItemNamed("/proc/meminfo");
        state_.memory = memory == nullptr ? "" : TextIn(*memory, "text");
        if (!refusals_.empty()) {
            throw std::runtime_error(
                fmt::format("this report cannot be rebuilt:\n  {}", fmt::join(refusals_, "\n  ")));
        }
        return std::move(state_);
    }

  private:
    void Refuse(const std::string& what) { refusals_.push_back(what); }
    void CheckFindings();
    void ReadCache(const Json& cache);
    void ReadRunning(const Json& cache, ReportedCache& result);
    void ReadUnloaded(const Json& cache, ReportedCache& result);
    void SetBlockSize(uint64_t size, ReportedCache& result);
    void AddSeeds(const Json& kernel, const std::string& pair, ReportedCache& result) const;
    void AddDisks(const Json& cache, const ReportedCache& result);
    void AddDisk(const std::string& path, ReportedDisk disk);
    void ReadFiles();
    void ReadModules();
    const Json* ItemNamed(const std::string& name) const;

    const Json& report_;
    ReportedState state_;
    std::vector<std::string> refusals_;
};

const Json* ReportReader::ItemNamed(const std::string& name) const {
    const Json& items = report_.at("items");
    const auto found =
        std::find_if(items.begin(), items.end(), [&](const Json& item) { return item.at("name") == name; });
    return found == items.end() ? nullptr : &*found;
}

void ReportReader::CheckFindings() {
    for (const Json& finding : report_.at("findings")) {
        const std::string code = TextIn(finding, "code");
        if (!Has(kRebuilt, code) && !Has(kRebuiltUnread, code)) {
            Refuse(fmt::format("what raises {} cannot be brought about here: {}", code,
                               TextIn(finding, "summary")));
        }
    }
    for (const Json& unmade : report_.at("unmade")) {
        const auto what = unmade.get<std::string>();
        if (what.starts_with("findings") || what.starts_with("files")) {
            Refuse("the report lacks a part: " + what);
        }
    }
}

void ReportReader::ReadCache(const Json& cache) {
    ReportedCache result;
    result.name = TextIn(cache, "name");
    const Json& ssd = cache.at("ssd");
    const std::string ssdPath = TextIn(ssd, "path");
    const std::string volumePath = TextIn(cache.at("volume"), "path");
    result.ssd = ssdPath;
    if (cache.at("state") == "unknown") {
        Refuse(fmt::format("whether {} is up is not known", result.name));
        return;
    }
    if (IsIn(cache.at("flush"), "running")) {
        Refuse(fmt::format("a flush of {} was running", result.name));
    }
    if (cache.at("state") == "running") {
        result.volume = volumePath;
        ReadRunning(cache, result);
    } else if (ssd.at("superblock").is_object()) {
        ReadUnloaded(cache, result);
    }
    AddDisks(cache, result);
    state_.caches.push_back(std::move(result));
}

void ReportReader::ReadRunning(const Json& cache, ReportedCache& result) {
    const Json& kernel = cache.at("kernel");
    const Json& superblock = cache.at("ssd").at("superblock");
    result.device = LastPart(TextIn(cache, "device"));
    result.mode = TextIn(kernel, "write_mode");
    result.blocks = NumberIn(kernel, "blocks");
    result.dirty = NumberIn(kernel, "dirty_blocks");
    result.cached = std::max(NumberIn(kernel, "cached_blocks"), result.dirty);
    if (result.mode.empty() || result.blocks == 0 || result.ssd.empty() || result.volume.empty()) {
        Refuse(fmt::format("the kernel's table of {} is not in the report", result.name));
        return;
    }
    if (result.blocks > kMostBlocks) {
        Refuse(fmt::format("{} has {} blocks; {} are the most for a cache that is up here", result.name,
                           result.blocks, kMostBlocks));
    }
    if (superblock.is_object() && (TextIn(superblock, "volume") != result.volume ||
                                   NumberIn(superblock, "block_size") != NumberIn(kernel, "block_size"))) {
        Refuse(fmt::format("the SSD of {} tells of another cache than the one that is up", result.name));
    }
    result.isWiped = superblock.is_null() && IsIn(cache.at("ssd"), "exists");
    SetBlockSize(NumberIn(kernel, "block_size"), result);
    AddSeeds(kernel, LastPart(result.ssd) + "+" + LastPart(result.volume), result);
}

void ReportReader::ReadUnloaded(const Json& cache, ReportedCache& result) {
    const Json& superblock = cache.at("ssd").at("superblock");
    result.volume = TextIn(superblock, "volume");
    result.mode = TextIn(superblock, "write_mode");
    result.blocks = NumberIn(superblock, "blocks");
    result.dirty = NumberIn(superblock, "dirty_blocks");
    result.cached = result.dirty;
    result.isInOrder = IsIn(superblock, "in_order");
    SetBlockSize(NumberIn(superblock, "block_size"), result);
}

// The format goes with it.
void ReportReader::SetBlockSize(uint64_t size, ReportedCache& result) {
    constexpr uint64_t kOriginalSize = 4096;
    constexpr uint64_t kNewSize = 65536;
    result.version = size == kNewSize ? base::kVersionNew : base::kVersionOriginal;
    if (size != kNewSize && size != kOriginalSize) {
        Refuse(fmt::format("{} has blocks of {} bytes; there are blocks of {} and {} here", result.name, size,
                           kOriginalSize, kNewSize));
    }
}

void ReportReader::AddSeeds(const Json& kernel, const std::string& pair, ReportedCache& result) const {
    const Json& knobs = kernel.at("knobs");
    for (const KnobInfo& knob : kKnobs) {
        const std::string name(knob.name);
        const Json* item = ItemNamed("/proc/sys/dev/flashcache_" + pair + "/" + name);
        if (item != nullptr && item->at("error").is_null()) {
            result.seeds.emplace_back("knob." + name, TextIn(*item, "text"));
        } else if (knobs.is_object() && knobs.contains(name)) {
            result.seeds.emplace_back("knob." + name, knobs.at(name).dump());
        }
    }
    for (const char* file :
         {"flashcache_stats", "flashcache_errors", "flashcache_progress", "flashcache_attribute"}) {
        if (const Json* item = ItemNamed("/proc/flashcache/" + pair + "/" + file)) {
            result.seeds.emplace_back(file, TextIn(*item, "text"));
        }
    }
}

void ReportReader::AddDisks(const Json& cache, const ReportedCache& result) {
    constexpr uint64_t kUnknownSize = uint64_t{1} << 30;
    const bool isUp = !result.device.empty();
    const Json& ssd = cache.at("ssd");
    const Json& volume = cache.at("volume");
    if (isUp || IsIn(ssd, "exists")) {
        base::Superblock layout;
        layout.slots = result.blocks;
        layout.blockSize = result.version == base::kVersionNew ? 65536 : 4096;
        const uint64_t needed =
            result.blocks == 0 ? 0 : layout.DataOffset() + result.blocks * layout.blockSize;
        const uint64_t told = NumberIn(ssd, "bytes");
        AddDisk(result.ssd, {"", std::max(told == 0 ? kUnknownSize : told, needed), 0, !IsIn(ssd, "exists")});
    }
    if (isUp || IsIn(volume, "exists")) {
        const uint64_t now = NumberIn(volume, "bytes");
        const uint64_t then = isUp ? NumberIn(cache.at("kernel"), "bytes") : now;
        AddDisk(TextIn(volume, "path"),
                {"", then == 0 ? kUnknownSize : then, isUp && now > then ? now : 0, !IsIn(volume, "exists")});
    }
}

// Two entries may name one disk.
void ReportReader::AddDisk(const std::string& path, ReportedDisk disk) {
    constexpr std::string_view kDev = "/dev/";
    if (!path.starts_with(kDev) || path.size() == kDev.size() || !IsPlainPath(path)) {
        Refuse(fmt::format("\"{}\" is no device below /dev", path));
        return;
    }
    disk.name = path.substr(kDev.size());
    const auto known = std::find_if(state_.disks.begin(), state_.disks.end(),
                                    [&](const ReportedDisk& one) { return one.name == disk.name; });
    if (known == state_.disks.end()) {
        state_.disks.push_back(std::move(disk));
    }
}

void ReportReader::ReadFiles() {
    constexpr std::array<std::string_view, 4> kPrefixes = {
        "/usr/vemo/etc/", "/tmp/flashcache", "/flashcache-create-64mb", "/tmp/cache-debug-remove"};
    std::vector<std::string> foreign;
    if (IsIn(report_.at("configuration"), "copy_is_foreign")) {
        foreign.emplace_back("/tmp/flashcache.conf");
    }
    for (const Json& lock : report_.at("appliance").at("locks")) {
        if (IsIn(lock, "foreign")) {
            foreign.push_back(TextIn(lock, "path"));
        }
    }
    for (const Json& item : report_.at("items")) {
        const std::string path = TextIn(item, "name");
        const auto user = static_cast<uid_t>(NumberIn(item, "user"));
        const bool isForeign = std::find(foreign.begin(), foreign.end(), path) != foreign.end();
        const bool isLock = path.starts_with("/run/lock/") && (isForeign || user != 0);
        const bool isOurs = std::any_of(kPrefixes.begin(), kPrefixes.end(),
                                        [&](std::string_view prefix) { return path.starts_with(prefix); });
        // What a volume looked like when its cache was unloaded is not how it looks here.
        const bool isWanted = (isOurs && !path.ends_with(".unloaded")) || isLock;
        const bool isThere = IsIn(item, "exists") && (item.at("error").is_null() || isForeign);
        if (isWanted && isThere && IsPlainPath(path)) {
            state_.files.push_back({path, TextIn(item, "text"), isForeign && user == 0 ? kSomebody : user});
        }
    }
}

void ReportReader::ReadModules() {
    const Json* item = ItemNamed("/proc/modules");
    const std::string loaded = item == nullptr ? "" : "\n" + TextIn(*item, "text");
    const bool isAnyUp = std::any_of(state_.caches.begin(), state_.caches.end(),
                                     [](const ReportedCache& cache) { return !cache.device.empty(); });
    for (const char* module : kModules) {
        if (isAnyUp || loaded.find(fmt::format("\n{} ", module)) != std::string::npos) {
            state_.modules.emplace_back(module);
        }
    }
}

}  // namespace

ReportedState ParseReport(const std::string& text) try {
    const Json report = Json::parse(text);
    if (!report.is_object() || !report.contains("names_replaced")) {
        throw std::runtime_error("this is no report of \"vemocachectl report\"");
    }
    if (report.at("format_version") != kReportVersion) {
        throw std::runtime_error(fmt::format("the report has the format version {}, and {} is known here",
                                             report.at("format_version").dump(), kReportVersion));
    }
    return ReportReader(report).Read();
} catch (const Json::exception& error) {
    throw std::runtime_error(
        fmt::format("this is no whole report of \"vemocachectl report\": {}", error.what()));
}

}  // namespace simulation
