// Sending a volume's pin bitmap to the kernel.

#include "common/log.h"
#include "common/text.h"
#include "vemoflashcache.h"

using namespace flashcache;

int VEMOFlashCachePinSendVolumeBitmap(const char* mountPath) {
    const int result = FlashcacheExecuteCommand("--send-bitmap", mountPath);
    if (result != 0) {
        LogError()("Can't send bitmap to volume (%s)", TextOrNull(mountPath));
    }
    return result;
}
