// Whether the power management's flush of a cache has been done.

#include <initializer_list>

#include "common/held_lock.h"
#include "common/log.h"
#include "common/text.h"
#include "flush/flush.h"
#include "platform/vemocore.h"

namespace flashcache {
namespace {

int CopyToRuntime(const char* persistentPath, const char* runtimePath, const char* runtimeDir) noexcept {
    if (VEMOFCCheckDirExistOrCreate(runtimeDir) != 0) {
        LogError()("Failed to  create directory");
        return -1;
    }
    if (VEMOFCCopyFile(persistentPath, runtimePath) != 0) {
        LogError()("Failed to copy file");
        return -1;
    }
    return 0;
}

int TouchBoth(const char* persistentPath, const char* runtimePath) noexcept {
    for (const char* path : {persistentPath, runtimePath}) {
        if (VLIBCFileTouch(path) != 0) {
            LogError()("Failed to touch %s", path);
            return -1;
        }
    }
    return 0;
}

}  // namespace
}  // namespace flashcache

using namespace flashcache;

int CreateConfigFilesIfNeeded(const char* persistentPath, const char* runtimePath, const char* runtimeDir) {
    if (VLIBCFileExist(runtimePath) != 0) {
        return 0;
    }
    if (VLIBCFileExist(persistentPath) != 0) {
        return CopyToRuntime(persistentPath, runtimePath, runtimeDir);
    }
    return TouchBoth(persistentPath, runtimePath);
}

int VEMOFlashCacheIsApmFlushDone(const char* cacheKey) {
    if (cacheKey == nullptr) {
        LogError()("Incorrect paramter");
        return 0;
    }
    const HeldLock lock(kApmLockFile);
    if (!lock) {
        return 0;
    }
    if (CreateConfigFilesIfNeeded(kApmPersistentFile, kApmRuntimeFile, kApmRuntimeDir) != 0) {
        LogError()("Failed to create files");
        return 0;
    }
    char value[8] = "";
    if (VLIBCFileGetKeyValue(kApmRuntimeFile, cacheKey, value, sizeof value, 0) <= 0) {
        return 0;
    }
    return SameText(value, kApmDone) ? 1 : 0;
}
