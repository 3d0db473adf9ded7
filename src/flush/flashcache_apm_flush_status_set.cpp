// Recording that the power management's flush of a cache has been done, or not.

#include <initializer_list>

#include "common/held_lock.h"
#include "common/log.h"
#include "flush/flush.h"
#include "platform/vemocore.h"

namespace flashcache {
namespace {

bool SetKey(const char* cacheKey) noexcept {
    for (const char* file : {kApmPersistentFile, kApmRuntimeFile}) {
        if (VLIBCFileSetKeyValue(file, cacheKey, kApmDone, 0) < 0) {
            LogPlatformError()("Fail to set cache [%s] apm flush done key to %s", cacheKey, file);
            return false;
        }
    }
    return true;
}

bool RemoveKey(const char* cacheKey) noexcept {
    for (const char* file : {kApmPersistentFile, kApmRuntimeFile}) {
        if (VLIBCFileExist(file) != 0 && VLIBCFileRemoveKey(file, cacheKey) < 0) {
            LogPlatformError()("Failed to remove apm status of cache [%s] to %s", cacheKey, file);
            return false;
        }
    }
    return true;
}

}  // namespace
}  // namespace flashcache

using namespace flashcache;

int VEMOFlashCacheApmFlushStatusSet(const char* cacheKey, unsigned int status) {
    if (status > 1 || cacheKey == nullptr) {
        LogError()("Incorrect paramter");
        return 0;
    }
    const HeldLock lock(kApmLockFile);
    if (!lock) {
        return -1;
    }
    if (VEMOFCCheckDirExistOrCreate(kApmRuntimeDir) != 0) {
        LogError()("Error: %s doesn't exist", kApmRuntimeDir);
        return -1;
    }
    return (status == 1 ? SetKey(cacheKey) : RemoveKey(cacheKey)) ? 0 : -1;
}
