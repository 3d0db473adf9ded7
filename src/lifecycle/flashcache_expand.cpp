// Letting a cache device follow the growth of its volume.

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>

#include <cinttypes>
#include <optional>

#include "base/unique_fd.h"
#include "common/guard.h"
#include "common/handle.h"
#include "common/line_reader.h"
#include "common/log.h"
#include "common/text.h"
#include "config/config.h"

namespace flashcache {
namespace {

constexpr const char* kExpandTool = "/usr/bin/flashcache_expand";
constexpr std::size_t kCommandSize = 4096;

// The configuration entry of the cache in front of this volume, empty (logged) when there is none.
ConfigList FindEntryOfSpace(const char* spacePath) noexcept {
    FLASHCACHE_CONFIG_SEARCH search{};
    search.type = FLASHCACHE_SEARCH_BY_SPACE_PATH;
    search.SpacePath = spacePath;
    ConfigList entry;
    const int count = VEMOFlashCacheConfigTmpGet(&search, entry.address());
    if (count == 0) {
        LogError()("Can't find cache config for %s", spacePath);
    } else if (count < 0) {
        LogError()("Failed to get SSD cache config (space path=%s)", spacePath);
    }
    return entry;
}

// The mode that the tool is given for a cache of this mode; empty for one that cannot be expanded.
std::optional<FLASHCACHE_WRITE_MODE> ModeForTool(FLASHCACHE_WRITE_MODE mode) noexcept {
    switch (mode) {
        case -1:
        case 3:
            LogError()("Invalid cache mode: %d", mode);
            return std::nullopt;
        case FLASHCACHE_WRITE_THRU:
        case FLASHCACHE_WRITE_BACK:
        case FLASHCACHE_WRITE_AROUND:
            return mode;
        case FLASHCACHE_WRITE_BACK_BYPASS:
            return FLASHCACHE_WRITE_BACK;
        case FLASHCACHE_WRITE_BACK_CRASH:
            LogError()("Do not support volume expansion with crashed cache");
            return std::nullopt;
        default:
            LogError()("Unknown cache mode %d", mode);
            return std::nullopt;
    }
}

int FlashCacheDeviceSizeGet(const char* path, uint64_t* size) noexcept {
    const base::UniqueFd device(open(path, O_RDONLY | O_CLOEXEC));
    if (!device) {
        LogError()("Failed to open %s", path);
        return -1;
    }
    if (ioctl(device.Get(), BLKGETSIZE64, size) != 0) {
        LogError()("Failed to get size for %s", path);
        return -1;
    }
    return 0;
}

// What the expansion tool is given.
struct ExpandArguments {
    const char* mode;
    const char* name;
    const char* ssd;
    const char* space;
};

ChildStream StartExpandTool(FLASHCACHE_VERSION version, const ExpandArguments& a, std::string& command) {
    if (version == FLASHCACHE_VERSION_ORIGINAL) {
        command = FormatCut(kCommandSize, "%s -p %s %s %s %s", kExpandTool, a.mode, a.name, a.ssd, a.space);
        return ChildStream(VLIBCPopen(kExpandTool, "rE", "-p", a.mode, a.name, a.ssd, a.space, nullptr));
    }
    command = FormatCut(kCommandSize, "%s -p %s -n %s %s %s", kExpandTool, a.mode, a.name, a.ssd, a.space);
    return ChildStream(VLIBCPopen(kExpandTool, "rE", "-p", a.mode, "-n", a.name, a.ssd, a.space, nullptr));
}

int RunExpandTool(FLASHCACHE_VERSION version, const ExpandArguments& arguments) {
    LogError()("Starting to expand cache (%s) ...", arguments.name);
    std::string command;
    const ChildStream tool = StartExpandTool(version, arguments, command);
    LogError()("Expand Command: %s", command.c_str());
    if (!tool) {
        LogError()("Popen failed. Command=%s", command.c_str());
        return -1;
    }
    // A tool that succeeds says nothing.
    if (LogLines(tool.get()) > 0) {
        LogError()("Expand cache failed. Command = %s", command.c_str());
        return -1;
    }
    LogError()("Expand cache (%s) successfully!", arguments.name);
    return 0;
}

int ExpandDevice(const FLASHCACHE_CONFIG& entry, FLASHCACHE_WRITE_MODE mode, const char* cachePath,
                 const char* spacePath) {
    const char* modeText = FlashCacheWriteModeToStr(mode);
    if (modeText == nullptr) {
        LogError()("Can't get correct cache mode (%d)", entry.Policy.WriteMode);
        return -1;
    }
    if (entry.CacheVersion != FLASHCACHE_VERSION_ORIGINAL && entry.CacheVersion != FLASHCACHE_VERSION_NEW) {
        LogError()("Incorrect cache version = %d", entry.CacheVersion);
        return -1;
    }
    return RunExpandTool(entry.CacheVersion,
                         {modeText, LastComponent(cachePath), entry.SSDDevPath, spacePath});
}

int Expand(const char* spacePath) {
    const ConfigList entry = FindEntryOfSpace(spacePath);
    if (!entry) {
        return -1;
    }
    const std::optional<FLASHCACHE_WRITE_MODE> mode = ModeForTool(entry->Policy.WriteMode);
    if (!mode) {
        return -1;
    }
    char cachePath[4096] = "";
    if (VEMOFlashcacheGetCachePath(spacePath, cachePath, sizeof cachePath) != 1) {
        LogError()("Can't find cache path from %s", spacePath);
        return -1;
    }
    uint64_t cacheSize = 0;
    uint64_t spaceSize = 0;
    if (FlashCacheDeviceSizeGet(cachePath, &cacheSize) != 0 ||
        FlashCacheDeviceSizeGet(entry->SpacePath, &spaceSize) != 0) {
        return -1;
    }
    if (cacheSize == spaceSize) {
        LogError()("cache dev size(%" PRIu64 ") equals target size(%" PRIu64 "), no need to expand",
                   cacheSize, spaceSize);
        return 0;
    }
    return ExpandDevice(*entry.get(), *mode, cachePath, spacePath);
}

}  // namespace
}  // namespace flashcache

using namespace flashcache;

int VEMOFlashCacheExpand(const char* spacePath) {
    if (spacePath == nullptr) {
        LogError()("Incorrect paramter");
        return -1;
    }
    return Guarded(-1, [&] { return Expand(spacePath); });
}
