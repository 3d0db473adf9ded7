// The size of a volume's pin bitmap.

#include <cinttypes>
#include <cstdio>

#include "common/guard.h"
#include "common/log.h"
#include "pin/pin.h"
#include "vemoflashcache.h"

namespace flashcache {
namespace {

int ReadBitmapSize(const char* mountPath, uint64_t* bytes) {
    const ChildStream tool(
        VLIBCPopen(kPinTool, "r", "--get-bitmap-size-byte", "--mount-path", mountPath, nullptr));
    if (!tool) {
        LogError()("Popen failed");
        return -1;
    }
    const std::string line = FirstLine(tool);
    if (line.empty()) {
        LogError()("Get line failed");
        return -1;
    }
    // The tool answers with a line such as "4096".
    if (std::sscanf(line.c_str(), "%" SCNu64, bytes) != 1) {
        LogError()("Parse memory bytes failed");
        return -1;
    }
    return 0;
}

}  // namespace
}  // namespace flashcache

using namespace flashcache;

int VEMOFlashCachePinGetBitmapSizeByte(const char* mountPath, uint64_t* bytes) {
    if (mountPath == nullptr || bytes == nullptr) {
        LogError()("Incorrect parameters");
        return -1;
    }
    if (ModelSupportPin() == 0) {
        LogError()("Model doesn't support pin");
        return -1;
    }
    return Guarded(-1, [&] { return ReadBitmapSize(mountPath, bytes); });
}
