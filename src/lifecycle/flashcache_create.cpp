// Creating a cache device, and the kernel modules that it needs.

#include <unistd.h>

#include <cinttypes>
#include <cstdio>
#include <cstring>

#include "common/guard.h"
#include "common/handle.h"
#include "common/line_reader.h"
#include "common/log.h"
#include "common/text.h"
#include "config/config.h"
#include "lifecycle/lifecycle.h"

namespace flashcache {
namespace {

constexpr const char* kCreateTool = "/usr/bin/flashcache_create";
constexpr const char* kSmallCacheMarker = "/flashcache-create-64mb";
constexpr uint64_t kSmallCacheKB = 65536;
constexpr std::size_t kNameSize = 64;
constexpr int kMostCaches = 1000;
constexpr const char* kModules[] = {"vemo_flashcache_control", "flashcache", "flashcache_vemo"};

int InsertModule(const char* name) {
    const std::string path = FormatCut(512, "/lib/modules/%s.ko", name);
    if (VLIBCExecl("/sbin/insmod", VLIBC_EXEC_WAIT, path.c_str(), nullptr) != 0) {
        LogError()("Insert Module failed, path=%s", path.c_str());
        return -1;
    }
    return 0;
}

uint64_t EffectiveSizeKB(uint64_t requested) noexcept {
    if (access(kSmallCacheMarker, F_OK) != 0) {
        return requested;
    }
    LogError()("Fix cache size to 64 MB");
    return kSmallCacheKB;
}

// The wanted name or a free one, empty on failure.
std::string ChooseName(const char* wantedPath) {
    if (wantedPath == nullptr) {
        return FlashCacheGetNewCacheName();
    }
    if (!IsCacheDevPath(wantedPath)) {
        SetError(VLIBC_ERR_BAD_PARAMETER);
        return {};
    }
    return FormatCut(kNameSize, "%s", CacheName(wantedPath));
}

// What the creation tool is given.
struct CreateArguments {
    std::string size;
    const char* mode;
    std::string name;
    const char* ssd;
    const char* space;
};

ChildStream StartOriginal(const CreateArguments& a) {
    LogError()("Create original cache");
    LogError()("Create Cache: %s -s %s -p %s %s %s %s", kCreateTool, a.size.c_str(), a.mode, a.name.c_str(),
               a.ssd, a.space);
    return ChildStream(VLIBCPopen(kCreateTool, "rE", "-s", a.size.c_str(), "-p", a.mode, a.name.c_str(),
                                  a.ssd, a.space, nullptr));
}

ChildStream StartNew(const CreateArguments& a) {
    LogError()("Create Cache: %s -n -s %s -p %s %s %s %s", kCreateTool, a.size.c_str(), a.mode,
               a.name.c_str(), a.ssd, a.space);
    return ChildStream(VLIBCPopen(kCreateTool, "rE", "-n", "-s", a.size.c_str(), "-p", a.mode, a.name.c_str(),
                                  a.ssd, a.space, nullptr));
}

// The running tool; empty on failure.
ChildStream StartTool(FLASHCACHE_VERSION version, const CreateArguments& arguments) {
    LogError()("Create cache, version=%s", version == FLASHCACHE_VERSION_ORIGINAL ? "original" : "new(vemo)");
    if (version != FLASHCACHE_VERSION_ORIGINAL && version != FLASHCACHE_VERSION_NEW) {
        LogError()("Unknown cache version: %d", version);
        return ChildStream();
    }
    ChildStream tool =
        version == FLASHCACHE_VERSION_ORIGINAL ? StartOriginal(arguments) : StartNew(arguments);
    if (!tool) {
        LogError()("Popen failed");
    }
    return tool;
}

// A tool that succeeds says nothing.
bool SaysNothing(const ChildStream& tool) {
    if (LogLines(tool.get()) == 0) {
        return true;
    }
    LogError()("Get error messages, Create cache failed");
    return false;
}

int Create(const FLASHCACHE_CREATE_PARAM& param, char* out, int outSize) {
    const uint64_t sizeKB = EffectiveSizeKB(param.CacheSizeKB);
    const std::string name = ChooseName(param.CacheDevPath);
    if (name.empty()) {
        return -1;
    }
    const char* mode = FlashCacheWriteModeToStr(param.Policy.WriteMode);
    if (mode == nullptr) {
        LogError()("Get incorrect write mode = %d", param.Policy.WriteMode);
        SetError(VLIBC_ERR_BAD_PARAMETER);
        return -1;
    }
    if (CheckAndInsertKernelModule() < 0) {
        return -1;
    }
    if (VEMOFlashCacheDestroy(param.SSDDevPath) < 0) {
        LogError()("Fail to destory cache on [%s]", param.SSDDevPath);
        return -1;
    }
    const std::string size = FormatCut(512, "%" PRIu64 "k", sizeKB);
    const ChildStream tool =
        StartTool(param.CacheVersion, {size, mode, name, param.SSDDevPath, param.SpacePath});
    if (!tool || !SaysNothing(tool)) {
        return -1;
    }
    if (VEMOFlashCacheSysctlSet(&param.Policy, param.SSDDevPath, param.SpacePath) < 0) {
        return -1;
    }
    return ReturnCachePath(name, out, outSize);
}

}  // namespace

std::string FlashCacheGetNewCacheName(Where where) {
    for (int number = 0; number < kMostCaches; ++number) {
        std::string name = FormatCut(kNameSize, "cachedev_%d", number);
        if (access((kMapperPrefix + name).c_str(), F_OK) != 0) {
            return name;
        }
    }
    LogError(where)("NOT FOUND new cachedev, counts: %d", kMostCaches);
    return {};
}

int ReturnCachePath(const std::string& name, char* out, int outSize, Where where) noexcept {
    if (out == nullptr || outSize <= 0) {
        return 0;
    }
    const auto needed = static_cast<int>(std::strlen(kMapperPrefix) + name.size());
    if (outSize <= needed) {
        LogError(where)("size of buffer is not enough (%d < %d) ", outSize, needed);
        return -1;
    }
    std::snprintf(out, static_cast<std::size_t>(outSize), "%s%s", kMapperPrefix, name.c_str());
    return 0;
}

}  // namespace flashcache

using namespace flashcache;

int CheckAndInsertSingleModule(const char* name) {
    if (name == nullptr) {
        LogError()("Module Name should not be NULL");
        return -1;
    }
    if (VEMOFlashCacheIsKModuleLoad(name) == 1) {
        return 0;
    }
    return Guarded(-1, [&] { return InsertModule(name); });
}

int CheckAndInsertKernelModule(void) {
    for (const char* module : kModules) {
        if (CheckAndInsertSingleModule(module) != 0) {
            return -1;
        }
    }
    return 0;
}

int VEMOFlashCacheCreate(const FLASHCACHE_CREATE_PARAM* param, char* out, int outSize) {
    if (param == nullptr || param->SpacePath == nullptr || param->SSDDevPath == nullptr ||
        param->CacheSizeKB == 0) {
        SetError(VLIBC_ERR_BAD_PARAMETER);
        return -1;
    }
    return Guarded(-1, [&] { return Create(*param, out, outSize); });
}
