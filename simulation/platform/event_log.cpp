#include <syslog.h>

#include "simulation/platform/errors.h"
#include "simulation/platform/text.h"

using namespace vemo::platform;

// The stand-in for the event log is a line of the system log.
int VEMOLogSet1(int type, int level, unsigned event, const char* text, const char* arg1, const char* arg2,
                const char* arg3) {
    return Guard(-1, [&] {
        std::string line;
        for (const char* part : {text, arg1, arg2, arg3}) {
            if (part != nullptr) line.append(" [").append(OneLine(part)).append("]");
        }
        syslog(LOG_NOTICE, "event 0x%08X type 0x%X level 0x%X%s", event, static_cast<unsigned>(type),
               static_cast<unsigned>(level), line.c_str());
        return 0;
    });
}
