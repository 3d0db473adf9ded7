#include "caches/adopt.h"

#include <fmt/format.h>

#include <cstdint>

#include "caches/entry.h"
#include "caches/tuning.h"
#include "support/device.h"

namespace cli {
namespace {

// Where the kernel's table does not tell, the SSD does.
std::uint64_t BytesOfRunning(const Cache& cache) {
    if (const auto bytes = cache.Bytes()) {
        return *bytes;
    }
    const auto content = ReadSsdContent(cache.Ssd());
    return content ? content->Bytes() : DeviceSize(cache.Ssd()).value_or(0);
}

}  // namespace

void WriteEntryOfRunning(const Cache& cache, const std::string& section, const std::string& mountPath) {
    const auto tuning = RunningTuning(cache);
    if (!tuning) {
        throw Failure{fmt::format("the cache {} cannot be given an entry", cache.Name()),
                      "its tuning cannot be read", fmt::format("vemocachectl -v knob get {}", cache.device),
                      std::nullopt, FailureKind::kUnknownState};
    }
    const std::string ssd = cache.Ssd();
    const std::string volume = cache.Volume();
    FLASHCACHE_CREATE_PARAM param{};
    param.SSDDevPath = ssd.c_str();
    param.SpacePath = volume.c_str();
    param.CacheSizeKB = BytesOfRunning(cache) / 1024;
    param.Policy = *tuning;
    param.CacheVersion = VEMOFlashCacheVersionGet(ssd.c_str());
    NewEntry entry{section, NewUuid(), mountPath};
    entry.loaded = true;
    WriteEntry(entry, param);
}

void WriteEntryOfSsd(const SsdContent& content, const std::string& ssd, const std::string& volume,
                     const std::string& section) {
    FLASHCACHE_CREATE_PARAM param{};
    param.SSDDevPath = ssd.c_str();
    param.SpacePath = volume.c_str();
    param.CacheSizeKB = content.Bytes() / 1024;
    param.Policy.WriteMode = content.mode;
    param.Policy.ReclaimPolicy = FLASHCACHE_RECLAIM_LRU;
    param.CacheVersion = content.format;
    WriteEntry({section, NewUuid(), DefaultMountPath(volume)}, param);
}

}  // namespace cli
