// Pinning files.

#include <cstring>

#include "common/guard.h"
#include "common/log.h"
#include "common/text.h"
#include "pin/pin.h"
#include "vemoflashcache.h"

namespace flashcache {
namespace {

constexpr std::size_t kFileListSize = 1024;

int RunOnFiles(const char* option, const char* files, const char* mountPath) {
    const std::string command =
        FormatCut(kPinCommandSize, "%s %s %s %s %s", kPinTool, option, files, "--mount-path", mountPath);
    LogDebug()("Cmd = %s", command.c_str());
    if (VLIBCExecl(kPinTool, VLIBC_EXEC_WAIT, option, files, "--mount-path", mountPath, nullptr) != 0) {
        LogError()("Failed. Cmd = %s ret = %d)", command.c_str(), -1);
        return -1;
    }
    return 0;
}

}  // namespace
}  // namespace flashcache

using namespace flashcache;

int FlashCachePinAddOrRemoveFiles(const char* files, const char* mountPath, int pin) {
    if (files == nullptr || mountPath == nullptr) {
        LogError()("Bad parameters");
        return -1;
    }
    if (std::strlen(files) >= kFileListSize) {
        LogError()("The length of files is over %d", static_cast<int>(kFileListSize));
        return -1;
    }
    return Guarded(-1,
                   [&] { return RunOnFiles(pin != 0 ? "--pin-files" : "--unpin-files", files, mountPath); });
}

int VEMOFlashCachePinAddFiles(const char* files, const char* mountPath) {
    if (files == nullptr || mountPath == nullptr) {
        LogError()("Incorrect parameter: szFiles=%s szMountPath=%s", TextOrNull(files),
                   TextOrNull(mountPath));
        return -1;
    }
    const int result = FlashCachePinAddOrRemoveFiles(files, mountPath, 1);
    if (result != 0) {
        LogError()("Pin new files (%s) to volume (%s) failed", files, mountPath);
    }
    return result;
}
