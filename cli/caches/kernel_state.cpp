#include "caches/kernel_state.h"

#include <cstdlib>
#include <memory>

#include "caches/kernel_files.h"
#include "caches/running.h"

namespace cli {
namespace {

constexpr unsigned kRemovalFlush = 0;

const char* ShortName(const std::string& path) {
    return path.starts_with("/dev/") ? VEMOFlashCacheGetShortDevName(path.c_str()) : nullptr;
}

template <typename Map>
Value NameIn(const Map& names, std::int32_t number) {
    for (const auto& [name, value] : names) {
        if (value == number) {
            return name;
        }
    }
    return {};
}

std::optional<std::uint64_t> ErrorCount(const std::string& ssd, const std::string& volume,
                                        std::string_view name) {
    const auto errors = ReadCounts(KernelName(ssd, volume), "flashcache_errors");
    const auto count = errors ? CountIn(*errors, name) : std::nullopt;
    return count ? std::optional(static_cast<std::uint64_t>(*count)) : std::nullopt;
}

}  // namespace

const std::map<std::string, FLASHCACHE_HANDLE_STATE> kHandleStates = {
    {"flush", FLASHCACHE_HANDLE_STATE_FLUSH},
    {"normal", FLASHCACHE_HANDLE_STATE_NORMAL},
    {"repairing", FLASHCACHE_HANDLE_STATE_REPAIRING},
    {"stop-writeback", FLASHCACHE_HANDLE_STATE_STOP_WRITEBACK}};

const std::map<std::string, FLASHCACHE_ATTRIBUTE> kAttributes = {
    {"none", FLASHCACHE_ATTRIBUTE_NONE}, {"force-remove", FLASHCACHE_ATTRIBUTE_FORCE_REMOVE}};

FLASHCACHE_HANDLE_STATE HandleStateOf(const Cache& cache) {
    return VEMOFlashCacheHandleStateGet(cache.Ssd().c_str(), cache.Volume().c_str());
}

FLASHCACHE_HANDLE_STATE HandleStateAtALook(const Cache& cache) {
    const auto knobs = ReadKnobs(KernelName(cache.Ssd(), cache.Volume()));
    return knobs ? HandleStateIn(*knobs) : FLASHCACHE_HANDLE_STATE_UNKNOWN;
}

bool IsOfFlush(FLASHCACHE_HANDLE_STATE state) {
    return state == FLASHCACHE_HANDLE_STATE_FLUSH || state == FLASHCACHE_HANDLE_STATE_REPAIRING;
}

FLASHCACHE_ATTRIBUTE AttributeOf(const Cache& cache) {
    return VEMOFlashCacheAttributeGet(cache.Ssd().c_str(), cache.Volume().c_str());
}

std::optional<std::uint64_t> DirtyBlocks(const std::string& ssd, const std::string& volume) {
    const char* ssdName = ShortName(ssd);
    const char* volumeName = ShortName(volume);
    if (ssdName == nullptr || volumeName == nullptr) {
        return std::nullopt;
    }
    const int blocks = VEMOFlashCacheDirtyBlockGet(ssdName, volumeName);
    return blocks < 0 ? std::nullopt : std::optional<std::uint64_t>(static_cast<std::uint64_t>(blocks));
}

std::optional<std::uint64_t> WriteErrors(const std::string& ssd, const std::string& volume) {
    return ErrorCount(ssd, volume, "write_disk_sync_errors");
}

std::optional<std::uint64_t> SsdReadErrors(const std::string& ssd, const std::string& volume) {
    return ErrorCount(ssd, volume, "ssd_read_errors");
}

std::optional<double> FlushPercent(const std::string& ssd, const std::string& volume) {
    const auto isRecorded = [&](FLASHCACHE_FLUSH_STATE state) {
        return VEMOFlashCacheIsRemoveInFlushState(ssd.c_str(), state) == 1;
    };
    const char* ssdName = ShortName(ssd);
    const char* volumeName = ShortName(volume);
    if (ssdName == nullptr || volumeName == nullptr ||
        (!isRecorded(FLASHCACHE_FLUSH_STATE_FLUSHING) && !isRecorded(FLASHCACHE_FLUSH_STATE_FLUSH_DONE))) {
        return std::nullopt;
    }
    const auto percent =
        static_cast<double>(VEMOFlashCacheGetFlushProgress(ssdName, volumeName, kRemovalFlush));
    return percent < 0 ? std::nullopt : std::optional(percent);
}

Value HandleStateText(FLASHCACHE_HANDLE_STATE state) {
    return NameIn(kHandleStates, state);
}

Value AttributeText(FLASHCACHE_ATTRIBUTE attribute) {
    return NameIn(kAttributes, attribute);
}

}  // namespace cli
