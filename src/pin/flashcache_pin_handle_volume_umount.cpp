// A volume was unmounted.

#include "common/log.h"
#include "common/text.h"
#include "vemoflashcache.h"

using namespace flashcache;

int VEMOFlashCachePinHandleVolumeUmount(const char* mountPath) {
    const int result = FlashcacheExecuteCommand("--handle-umount", mountPath);
    if (result != 0) {
        LogError()("Handle umount event of volume (%s) failed", TextOrNull(mountPath));
    }
    return result;
}
