// Whether this model pins files, and the pin tool's operations on a whole volume.

#include "common/guard.h"
#include "common/line_reader.h"
#include "common/log.h"
#include "common/text.h"
#include "pin/pin.h"
#include "vemoflashcache.h"

namespace flashcache {
namespace {

int RunOnVolume(const char* option, const char* mountPath) {
    const std::string command =
        FormatCut(kPinCommandSize, "%s %s %s %s", kPinTool, option, "--mount-path", mountPath);
    LogDebug()("Cmd = %s", command.c_str());
    if (VLIBCExecl(kPinTool, VLIBC_EXEC_WAIT, option, "--mount-path", mountPath, nullptr) != 0) {
        LogError()("Failed. Cmd = %s ret = %d)", command.c_str(), -1);
        return -1;
    }
    return 0;
}

}  // namespace

std::string FirstLine(const ChildStream& tool) {
    LineReader lines(tool.get());
    const char* line = lines.Next();
    return line == nullptr ? std::string() : std::string(line);
}

}  // namespace flashcache

using namespace flashcache;

int ModelSupportPin(void) {
    char value[1024] = "";
    if (VLIBCFileGetKeyValue("/etc.defaults/vemoinfo.conf", "cache_support_pin", value, sizeof value, 0) <
        1) {
        return 0;
    }
    return SameText(value, "yes") ? 1 : 0;
}

int FlashcacheExecuteCommand(const char* option, const char* mountPath) {
    if (ModelSupportPin() == 0) {
        LogDebug()("Doesn't support pin");
        return 0;
    }
    if (mountPath == nullptr || option == nullptr) {
        LogError()("Bad parameters");
        return -1;
    }
    return Guarded(-1, [&] { return RunOnVolume(option, mountPath); });
}
