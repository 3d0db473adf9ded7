#include "platform/vemosysnotify.h"

#include <syslog.h>

#include "simulation/platform/errors.h"
#include "simulation/platform/sz_hash.h"

using namespace vemo::platform;

// The stand-in for the notification is a line of the system log.
int VEMOSysNotifySendNotifiction(const char* name, VLIBC_SZHASH** hash) {
    if (name == nullptr) return Fail(VLIBC_ERR_BAD_PARAMETER);
    return Guard(-1, [&] {
        std::string line = OneLine(name);
        if (hash != nullptr && *hash != nullptr) {
            for (const TextMap::Entry& pair : (*hash)->map.Entries()) {
                line.append(" [")
                    .append(OneLine(pair.key))
                    .append("=")
                    .append(OneLine(pair.value))
                    .append("]");
            }
        }
        syslog(LOG_NOTICE, "notification %s", line.c_str());
        return 0;
    });
}
