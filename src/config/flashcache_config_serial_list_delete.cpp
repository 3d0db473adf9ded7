// Removing the serial numbers of SSDs.

#include "common/log.h"
#include "config/serial_list.h"
#include "vemoflashcache.h"

using namespace flashcache;

int VEMOFlashcacheConfigSerialListDelete(const char* section) {
    if (section == nullptr) {
        LogError()("Incorrect paramter");
        return -1;
    }
    const SerialLock lock;
    if (!lock) {
        return -1;
    }
    if (VLIBCFileRemoveSection(kSerialFile, section) < 0) {
        LogError()("Failed to remove section [%s] from [%s]", section, kSerialFile);
        return -1;
    }
    return 0;
}
