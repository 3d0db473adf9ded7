// Deleting a volume's pin bitmap.

#include "common/log.h"
#include "common/text.h"
#include "vemoflashcache.h"

using namespace flashcache;

int VEMOFlashCachePinDeleteVolumeBitmap(const char* mountPath) {
    const int result = FlashcacheExecuteCommand("--delete-bitmap", mountPath);
    if (result != 0) {
        LogError()("Can't delete the bitmap of volume (%s)", TextOrNull(mountPath));
    }
    return result;
}
