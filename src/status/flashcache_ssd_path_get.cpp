// The SSD behind a cache device.

#include "common/guard.h"
#include "common/log.h"
#include "common/text.h"
#include "config/config.h"
#include "status/status.h"

using namespace flashcache;

int VEMOFlashCacheSSDPathGet(const char* cacheDevPath, char* out, int outSize) {
    if (outSize <= 0 || out == nullptr || !IsCacheDevPath(cacheDevPath)) {
        SetError(VLIBC_ERR_BAD_PARAMETER);
        return -1;
    }
    StatList status;
    if (GetCacheStatus(cacheDevPath, status) < 0) {
        return -1;
    }
    CopyOut(status->SSDDevPath, out, outSize);
    return 0;
}
