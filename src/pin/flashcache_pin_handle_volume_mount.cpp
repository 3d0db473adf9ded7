// A volume was mounted.

#include "common/guard.h"
#include "common/log.h"
#include "common/text.h"
#include "pin/pin.h"
#include "vemoflashcache.h"

namespace flashcache {
namespace {

int HandleMount(const char* mountPath) {
    const std::string command = FormatCut(kPinCommandSize, "%s %s %s %s %s %s", kPinTool, "--handle-mount",
                                          "--mount-path", mountPath, "--config-path", kPinConfigFile);
    LogDebug()("Cmd = %s", command.c_str());
    if (VLIBCExecl(kPinTool, VLIBC_EXEC_WAIT, "--handle-mount", "--mount-path", mountPath, "--config-path",
                   kPinConfigFile, nullptr) != 0) {
        LogError()("Handle volume mount failed. Cmd = %s ret = %d)", command.c_str(), -1);
        return -1;
    }
    return 0;
}

}  // namespace
}  // namespace flashcache

using namespace flashcache;

int VEMOFlashCachePinHandleVolumeMount(const char* mountPath) {
    if (ModelSupportPin() == 0) {
        LogDebug()("Doesn't support pin");
        return 0;
    }
    if (mountPath == nullptr) {
        LogError()("Bad parameters");
        return -1;
    }
    return Guarded(-1, [&] { return HandleMount(mountPath); });
}
