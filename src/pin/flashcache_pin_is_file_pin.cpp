// Whether a file is pinned.

#include "common/guard.h"
#include "common/log.h"
#include "common/text.h"
#include "pin/pin.h"
#include "vemoflashcache.h"

namespace flashcache {
namespace {

// The tool answers with a line such as "Yes" or "Not pinned".
int AskTool(const char* filePath, uint32_t* isAdded) {
    const std::string command = FormatCut(kPinCommandSize, "%s %s %s %s %s", kPinTool, "--check-pin",
                                          filePath, "--config-path", kPinConfigFile);
    LogDebug()("Cmd = %s", command.c_str());
    const ChildStream tool(
        VLIBCPopen(kPinTool, "r", "--check-pin", filePath, "--config-path", kPinConfigFile, nullptr));
    if (!tool) {
        LogError()("Popen failed");
        return -1;
    }
    const std::string line = FirstLine(tool);
    if (line.empty()) {
        LogError()("Parse line failed");
        return -1;
    }
    if (StartsWith(line.c_str(), "Yes")) {
        *isAdded = 1;
        return 0;
    }
    if (StartsWith(line.c_str(), "No")) {
        *isAdded = 0;
        return 0;
    }
    LogError()("Check file (%s) error", filePath);
    return -1;
}

}  // namespace
}  // namespace flashcache

using namespace flashcache;

int VEMOFlashCachePinIsFileAdded(const char* filePath, uint32_t* isAdded) {
    if (filePath == nullptr || isAdded == nullptr) {
        LogError()("Incorrect parameters");
        return -1;
    }
    const int result = Guarded(-1, [&] { return AskTool(filePath, isAdded); });
    LogDebug()("File (%s) isAdded=%d", filePath, static_cast<int>(*isAdded));
    return result;
}
