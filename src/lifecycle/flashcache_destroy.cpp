// Wiping the cache metadata of an SSD.

#include "common/log.h"
#include "config/config.h"

using namespace flashcache;

int VEMOFlashCacheDestroy(const char* ssdPath) {
    constexpr const char* kDestroyTool = "/usr/bin/flashcache_destroy";
    if (!IsDevicePath(ssdPath)) {
        SetError(VLIBC_ERR_BAD_PARAMETER);
        return -1;
    }
    LogError()("Cache Destroy: %s -f %s", kDestroyTool, ssdPath);
    const int status = VLIBCExecl(kDestroyTool, VLIBC_EXEC_WAIT, "-f", ssdPath, nullptr);
    if (status != 0) {
        // An SSD that carries no cache makes the tool fail; callers that only want it clean go on.
        SetError(VLIBC_ERR_COMMAND_FAILED);
        __extension__ LogError()("failed to destroy cache [%s], errno=%m, ret=%d", ssdPath, status);
        return 0;
    }
    LogError()("Success to destroy cache [%s]", ssdPath);
    return 0;
}
