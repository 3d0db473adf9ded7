// Unpinning files.

#include "common/log.h"
#include "common/text.h"
#include "vemoflashcache.h"

using namespace flashcache;

int VEMOFlashCachePinRemoveFiles(const char* files, const char* mountPath) {
    if (files == nullptr || mountPath == nullptr) {
        LogError()("Incorrect parameter: szFiles=%s szMountPath=%s", TextOrNull(files),
                   TextOrNull(mountPath));
        return -1;
    }
    const int result = FlashCachePinAddOrRemoveFiles(files, mountPath, 0);
    if (result != 0) {
        LogError()("Unpin files (%s) from volume (%s) failed", files, mountPath);
    }
    return result;
}
