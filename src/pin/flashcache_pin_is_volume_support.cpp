// Whether a volume supports pinning.

#include "common/guard.h"
#include "common/log.h"
#include "common/text.h"
#include "pin/pin.h"
#include "vemoflashcache.h"

namespace flashcache {
namespace {

// The tool answers with a line such as "Yes".
int AskTool(const char* mountPath) {
    const ChildStream tool(VLIBCPopen(kPinTool, "r", "--support-pin", "--mount-path", mountPath, nullptr));
    if (!tool) {
        LogError()("Popen failed");
        return 0;
    }
    const std::string line = FirstLine(tool);
    if (line.empty()) {
        LogError()("Parse line failed");
        return 0;
    }
    return StartsWith(line.c_str(), "Yes") ? 1 : 0;
}

}  // namespace
}  // namespace flashcache

using namespace flashcache;

int VEMOFlashCachePinIsVolumeSupport(const char* mountPath) {
    int supported = 0;
    if (ModelSupportPin() == 0) {
        LogDebug()("Doesn't support pin");
    } else if (mountPath == nullptr) {
        LogError()("Incorrect parameters");
    } else {
        supported = Guarded(0, [&] { return AskTool(mountPath); });
    }
    LogDebug()("Volume(%s) Support pin=%d", TextOrNull(mountPath), supported);
    return supported;
}
