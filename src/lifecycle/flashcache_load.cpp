// Bringing up a configured cache from its SSD.

#include "common/guard.h"
#include "common/handle.h"
#include "common/log.h"
#include "config/config.h"
#include "lifecycle/lifecycle.h"

namespace flashcache {
namespace {

// The configuration entry of the cache on this SSD, empty on failure.
ConfigList FindEntryOfSsd(const char* ssdPath) noexcept {
    FLASHCACHE_CONFIG_SEARCH search{};
    search.type = FLASHCACHE_SEARCH_BY_SSD_DEV_PATH;
    search.SSDDevPath = ssdPath;
    ConfigList entry;
    if (VEMOFlashCacheConfigGet(&search, entry.address()) < 1 || !entry) {
        LogPlatformError()("Fail to get SSD config by cache device path [%s]. ", ssdPath);
    }
    return entry;
}

int RunLoadTool(const char* ssdPath, const char* name, const char* spacePath) noexcept {
    LogError()("Load Cache: %s %s %s %s", kLoadTool, ssdPath, name, spacePath);
    if (VLIBCExecl(kLoadTool, VLIBC_EXEC_WAIT, ssdPath, name, spacePath, nullptr) != 0) {
        __extension__ LogError()(
            "Load cache failed (cache path=%s cache name=%s disk path=%s) errno=%m, ret=%d", ssdPath, name,
            spacePath, -1);
        return -1;
    }
    return 0;
}

int Load(const char* ssdPath, const char* spacePath, char* out, int outSize) {
    if (CheckAndInsertKernelModule() < 0) {
        return -1;
    }
    const ConfigList entry = FindEntryOfSsd(ssdPath);
    if (!entry) {
        return -1;
    }
    const std::string name = FlashCacheGetNewCacheName();
    if (name.empty()) {
        LogError()("Fail to get new cache name");
        return -1;
    }
    if (RunLoadTool(ssdPath, name.c_str(), spacePath) != 0) {
        return -1;
    }
    if (VEMOFlashCacheSysctlSet(&entry->Policy, ssdPath, spacePath) < 0) {
        LogPlatformError()("Fail to set cache sysctl. ");
        return -1;
    }
    return ReturnCachePath(name, out, outSize);
}

}  // namespace
}  // namespace flashcache

using namespace flashcache;

int VEMOFlashCacheLoad(const char* ssdPath, const char* spacePath, char* out, int outSize) {
    if (ssdPath == nullptr || spacePath == nullptr) {
        LogError()("Bad parameters");
        return -1;
    }
    return Guarded(-1, [&] { return Load(ssdPath, spacePath, out, outSize); });
}
