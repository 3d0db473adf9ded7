// Taking a cache device down.

#include "common/guard.h"
#include "common/handle.h"
#include "common/line_reader.h"
#include "common/log.h"
#include "common/text.h"
#include "config/config.h"

namespace flashcache {
namespace {

constexpr const char* kDmsetup = "/sbin/dmsetup";
constexpr const char* kLsof = "/bin/lsof";

int LogMounts() {
    LogError()("==== /proc/mount start ==== ");
    const ChildStream mounts(VLIBCPopen("/bin/cat", "r", "/proc/mounts", nullptr));
    if (!mounts) {
        LogError()("Reading /proc/mounts failed");
        return -1;
    }
    LogLines(mounts.get());
    LogError()("==== /proc/mount end ==== ");
    return 0;
}

int LogHolders(const char* cacheDevPath) {
    LogError()("==== lsof [%s] start ==== ", cacheDevPath);
    const ChildStream holders(VLIBCPopen(kLsof, "r", cacheDevPath, nullptr));
    if (!holders) {
        LogError()("Reading the result of lsof failed");
        return -1;
    }
    LogLines(holders.get());
    LogError()("==== lsof [%s] end ==== ", cacheDevPath);
    return 0;
}

// Tells in the log what may hold the device. Returns 0, or -1 when a reading could not be started.
int PrintDebugMessage(const char* cacheDevPath) {
    if (LogMounts() != 0) {
        return -1;
    }
    if (VLIBCFileExist(kLsof) == 0) {
        LogError()("No lsof in your system, need to put it to %s for debugging", kLsof);
        return 0;
    }
    return LogHolders(cacheDevPath);
}

// Logs what the tool says; false when it says that it failed.
bool Succeeds(const ChildStream& tool) {
    bool succeeded = true;
    LineReader lines(tool.get());
    while (const char* line = lines.Next()) {
        succeeded = succeeded && !Contains(line, "Command failed");
        LogError()("%s", line);
    }
    return succeeded;
}

int Unload(const char* cacheDevPath) {
    const char* name = CacheName(cacheDevPath);
    LogError()("Unload Cache: %s remove --retry %s", kDmsetup, name);
    const ChildStream tool(VLIBCPopen(kDmsetup, "rE", "remove", "--retry", name, nullptr));
    if (!tool) {
        LogError()("Popen failed");
        return -1;
    }
    if (Succeeds(tool)) {
        LogError()("Success to unload [%s]", name);
        return 0;
    }
    LogError()("Failed to unlod [%s]", name);
    if (PrintDebugMessage(cacheDevPath) != 0) {
        LogError()("Failed to print debug message");
    }
    return -1;
}

}  // namespace
}  // namespace flashcache

using namespace flashcache;

int VEMOFlashCacheUnload(const char* cacheDevPath) {
    if (!IsCacheDevPath(cacheDevPath)) {
        SetError(VLIBC_ERR_BAD_PARAMETER);
        return -1;
    }
    return Guarded(-1, [&] { return Unload(cacheDevPath); });
}
