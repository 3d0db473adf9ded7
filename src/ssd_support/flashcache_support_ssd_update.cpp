// Replacing the SSD compatibility database with a fresh copy.

#include <cstring>

#include "common/guard.h"
#include "common/log.h"
#include "common/own_file.h"
#include "common/text.h"
#include "ssd_support/ssd_support.h"

namespace flashcache {
namespace {

constexpr const char* kFileName = "support_ssd.db";
constexpr const char* kTargetDir = "/etc.defaults";
constexpr const char* kDefaultAddress = "http://update.vemo.example/ssddb/getdb.php";
constexpr std::size_t kPathSize = 512;

// The download address; one for the process, so updates exclude each other.
char address[256];

// Reads the configured address, or the default one. False when that failed.
bool ReadAddress() noexcept {
    std::memset(address, 0, sizeof address);
    if (VLIBCFileGetKeyValue(kModelFile, "support_ssd_update_site", address, sizeof address, 0) < 0) {
        return false;
    }
    if (address[0] == '\0') {
        CopyOut(kDefaultAddress, address, sizeof address);
    }
    return true;
}

int Download(const std::string& path) {
    constexpr const char* kWget = "/usr/bin/wget";
    if (!ReadAddress()) {
        // Without an address the tool refuses, and the update ends as any failed download does.
        return VLIBCExecl(kWget, VLIBC_EXEC_WAIT, nullptr);
    }
    // The tool would write through what another user laid there, and we would take it over.
    if (ClaimFile(path.c_str(), 0666) == Claim::kFailed) {
        return -1;
    }
    return VLIBCExecl(kWget, VLIBC_EXEC_WAIT, address, "-O", path.c_str(), "--timeout=15", nullptr);
}

int Update() {
    const std::string downloaded = FormatCut(kPathSize, "/tmp/%s", kFileName);
    const std::string target = FormatCut(kPathSize, "%s/%s", kTargetDir, kFileName);
    if (Download(downloaded) != 0) {
        LogError()("Cannot contact server");
        return -1;
    }
    if (VLIBCExecl("mv", VLIBC_EXEC_WAIT, downloaded.c_str(), target.c_str(), nullptr) != 0) {
        LogError()("Move %s to %s fail", kFileName, kTargetDir);
        return -1;
    }
    return 0;
}

}  // namespace
}  // namespace flashcache

using namespace flashcache;

int VEMOFlashCacheSupportSSDUpdate(void) {
    return Guarded(-1, [] { return Update(); });
}
