// Removing a running cache end to end.

#include <initializer_list>

#include "common/log.h"
#include "config/config.h"
#include "status/status.h"

namespace flashcache {
namespace {

bool IsAnyCacheLeft() noexcept {
    StatList caches;
    return VEMOFlashCacheStatGet(nullptr, caches.address()) >= 1;
}

// Removes a module that no cache needs any more. Returns 0, also when it stays; -1 when it cannot be
// removed.
int CheckAndRemoveSingleModule(const char* name) noexcept {
    if (name == nullptr) {
        LogError()("Module Name should not be NULL");
        return -1;
    }
    if (VEMOFlashCacheIsKModuleLoad(name) != 1 || IsAnyCacheLeft()) {
        return 0;
    }
    const int status = VLIBCExecl("/sbin/rmmod", VLIBC_EXEC_WAIT, name, nullptr);
    if (status != 0) {
        __extension__ LogError()("Remove module [%s] failed,  errno=%m, ret=%d", name, status);
        return -1;
    }
    return 0;
}

// Sees to the dirty blocks of a write-back cache: written back, or given up in a fast removal.
int SettleDirtyBlocks(const char* cacheDevPath, const FLASHCACHE_STAT& status, bool fast) noexcept {
    const int32_t fastRemove = fast ? 1 : 0;
    if (VEMOFlashCacheDoSysctlSet(FLASHCACHE_SYSCTL_FAST_REMOVE, fastRemove, status.SSDDevPath,
                                  status.SpacePath) != 0) {
        LogPlatformError()("Fail to set fast_remove of cache [%s] to %d. ", cacheDevPath, fastRemove);
        return -1;
    }
    if (!fast && VEMOFlashCacheFlush(cacheDevPath) < 0) {
        LogError()("Fail to Flush cache [%s]. ", cacheDevPath);
        return -1;
    }
    return 0;
}

int Delete(const char* cacheDevPath, const FLASHCACHE_STAT& status, bool fast) noexcept {
    const bool writeBack = status.WriteMode == FLASHCACHE_WRITE_BACK;
    if (writeBack && SettleDirtyBlocks(cacheDevPath, status, fast) != 0) {
        return -1;
    }
    if (VEMOFlashCacheUnload(cacheDevPath) < 0) {
        LogPlatformError()("Failed to unload fcache [%s] ", cacheDevPath);
        return -1;
    }
    if (writeBack && VEMOFlashCacheDestroy(status.SSDDevPath) < 0) {
        LogPlatformError()("Fail to destory flashcache on [%s]. ", status.SSDDevPath);
        return -1;
    }
    for (const char* module : {"flashcache", "flashcache_vemo", "vemo_flashcache_control"}) {
        CheckAndRemoveSingleModule(module);
    }
    return 0;
}

}  // namespace
}  // namespace flashcache

using namespace flashcache;

int VEMOFlashCacheDelete(const char* cacheDevPath, const FLASHCACHE_STAT* status, int fastRemove) {
    if (!IsCacheDevPath(cacheDevPath)) {
        SetError(VLIBC_ERR_BAD_PARAMETER);
        return -1;
    }
    StatList found;
    if (status == nullptr) {
        if (GetCacheStatus(cacheDevPath, found) < 0) {
            return -1;
        }
        status = found.get();
    }
    return Delete(cacheDevPath, *status, fastRemove != 0);
}
