// Announcing a missing write-back cache.

#include <cstdio>

#include "common/guard.h"
#include "common/handle.h"
#include "common/log.h"
#include "common/text.h"
#include "platform/vemosysnotify.h"
#include "vemoflashcache.h"

namespace flashcache {
namespace {

constexpr unsigned kCacheMissingEvent = 0x116000B2;
constexpr std::size_t kVolumeTextSize = 1024;

// "Volume 3" for "/volume3", other paths as they are.
std::string VolumeText(const char* referencePath) {
    int number = 0;
    if (std::sscanf(referencePath, "/volume%d", &number) == 1) {
        return FormatCut(kVolumeTextSize, "Volume %d", number);
    }
    return FormatCut(kVolumeTextSize, "%s", referencePath);
}

int Announce(const FLASHCACHE_CONFIG& config) {
    StringHash values(VLIBCSzHashAlloc(512));
    if (!values) {
        LogPlatformError()("Fail to allocate hash. ");
        return -1;
    }
    const std::string volume = VolumeText(config.ReferencePath == nullptr ? "" : config.ReferencePath);
    if (VLIBCSzHashSetValue(values.address(), "%SPACE_ID%", volume.c_str()) != 0) {
        LogError()("Failed to set hash value SPACE_ID %s", volume.c_str());
    }
    VEMOLogSet1(0x1, 0x3, kCacheMissingEvent, volume.c_str(), nullptr, nullptr, nullptr);
    if (VEMOSysNotifySendNotifiction("SSDCacheMissing", values.address()) != 0) {
        LogError()("Failed to send notification SSDCacheMissing");
        return -1;
    }
    return 0;
}

}  // namespace
}  // namespace flashcache

using namespace flashcache;

int VEMOFlashCacheCheckSendMissingNotification(const FLASHCACHE_CONFIG* config) {
    if (config == nullptr) {
        LogError()("Invalid input parameter");
        return -1;
    }
    if (config->CacheMissing == 0 || config->Policy.WriteMode != FLASHCACHE_WRITE_BACK) {
        return 0;
    }
    return Guarded(-1, [&] { return Announce(*config); });
}
