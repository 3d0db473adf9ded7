// Writing a configuration entry and refreshing the temporary copy.

#include <sys/stat.h>
#include <unistd.h>

#include <cinttypes>

#include "common/guard.h"
#include "common/held_lock.h"
#include "common/log.h"
#include "common/own_file.h"
#include "common/text.h"
#include "config/config.h"

namespace flashcache {
namespace {

constexpr std::size_t kValueSize = 32;
constexpr const char* kStagingFile = "/tmp/flashcache-tmp.conf";

// Collects the keys of one section; one failure spoils the whole.
class KeyWriter {
  public:
    explicit KeyWriter(StringHash& hash) noexcept : hash_(hash) {}

    void Text(const char* key, const char* value) noexcept {
        const int result = VLIBCSzHashSetValue(hash_.address(), key, value == nullptr ? "" : value);
        complete_ = complete_ && result == 0 && hash_;
    }
    void Number(const char* key, int32_t value) { Text(key, FormatCut(kValueSize, "%d", value).c_str()); }
    void Size(const char* key, uint64_t value) {
        Text(key, FormatCut(kValueSize, "%" PRIu64, value).c_str());
    }

    bool complete() const noexcept { return complete_; }

  private:
    StringHash& hash_;
    bool complete_ = true;
};

// NULL for a policy without a text.
const char* ReclaimPolicyText(int32_t policy) noexcept {
    switch (policy) {
        case FLASHCACHE_RECLAIM_LRU:
            return "lru";
        case FLASHCACHE_RECLAIM_FIFO:
            return "fifo";
        default:
            return nullptr;
    }
}

// Puts all nineteen keys of the entry into `hash`; false when that is impossible.
bool CollectKeys(const FLASHCACHE_CONFIG& config, StringHash& hash) {
    KeyWriter keys(hash);
    keys.Text("SSDUUID", config.SSDUUID);
    keys.Text("ReferencePath", config.ReferencePath);
    keys.Text("SSDDevPath", config.SSDDevPath);
    keys.Text("SpacePath", config.SpacePath);
    keys.Number("DirtyThreshPercent", config.Policy.DirtyThreshPercent);
    keys.Number("DelaySeconds", config.Policy.DelaySeconds);
    keys.Text("SSDID", config.SSDID);
    keys.Text("DiskLoc", config.DiskLoc);
    keys.Number("CacheMissing", config.CacheMissing);
    keys.Number("SpaceMissing", config.SpaceMissing);
    keys.Number("loaded", config.loaded);
    keys.Text("SkipSeqIO", config.Policy.SkipSeqIO == 1 ? "1" : "0");
    keys.Size("CacheSizeByte", config.CacheSizeByte);
    keys.Number("CacheVersion", config.CacheVersion);
    keys.Number("CreateCritSection", config.CreateCritSection);
    keys.Number("ConfigSource", config.ConfigSource);
    const char* reclaimPolicy = ReclaimPolicyText(config.Policy.ReclaimPolicy);
    if (reclaimPolicy == nullptr) {
        LogError()("bad policy: %d", config.Policy.ReclaimPolicy);
        return false;
    }
    keys.Text("ReclaimPolicy", reclaimPolicy);
    const char* writeMode = WriteModeText(config.Policy.WriteMode);
    if (writeMode == nullptr) {
        LogError()("bad write type: %d", config.Policy.WriteMode);
        return false;
    }
    keys.Text("WriteMode", writeMode);
    keys.Text("FlushState", config.FlushState);
    return keys.complete();
}

// Replaces the entry's section, or appends it where file or section are not there yet.
int WriteSection(const FLASHCACHE_CONFIG& config, const StringHash& keys) noexcept {
    if (VLIBCFileSetSection(kConfigFile, config.SectionName, nullptr, keys.get(), kKeyLineFormat) >= 1) {
        return 0;
    }
    const int error = VLIBCErrGet();
    if (error != VLIBC_ERR_OPEN_FAILED && error != VLIBC_ERR_SECTION_NOT_FOUND) {
        LogPlatformError()("Failed to set key [%s] into %s, ", config.SSDUUID, kConfigFile);
        return -1;
    }
    if (VLIBCFileAddSection(kConfigFile, config.SectionName, keys.get(), kKeyLineFormat) < 0) {
        LogPlatformError()("Failed to add key[%s] into %s, ", config.SSDUUID, kConfigFile);
        return -1;
    }
    return 0;
}

int SetEntry(const FLASHCACHE_CONFIG& config) {
    StringHash keys(VLIBCSzHashAlloc(kSectionCapacity));
    if (!keys) {
        LogPlatformError()("Failed to alloc hash for [%s], ", config.SSDUUID);
        return -1;
    }
    if (!CollectKeys(config, keys)) {
        return -1;
    }
    const HeldLock lock(kConfigLockFile);
    if (!lock || WriteSection(config, keys) != 0) {
        return -1;
    }
    if (VEMOFlashCacheConfigTmpUpdate() != 0) {
        LogError()("Can't update config in /tmp");
        return -1;
    }
    return 0;
}

// The mode of the configuration file, which its copy is to have.
mode_t ConfigMode() noexcept {
    struct stat status{};
    return stat(kConfigFile, &status) == 0 ? status.st_mode & 0777U : 0600U;
}

// The copy in the making. The tool would write through what another user laid there.
int CopyToStaging(mode_t mode) noexcept {
    const Claim staging = ClaimFile(kStagingFile, mode);
    if (staging == Claim::kFailed) {
        LogError()("Copy error");
        return -1;
    }
    if (VLIBCExecl("/bin/cp", VLIBC_EXEC_WAIT, "-f", kConfigFile, kStagingFile, nullptr) != 0) {
        LogError()("Copy error");
        if (staging == Claim::kMade) {
            unlink(kStagingFile);
        }
        return -1;
    }
    return 0;
}

// The move is what readers see: the old copy or the new one, never a part. The tool would move into a folder
// that lies there, or that a link there names.
int MoveToCopy(mode_t mode) noexcept {
    const Claim copy = ClaimFile(kConfigTmpFile, mode);
    if (copy != Claim::kFailed &&
        VLIBCExecl("/bin/mv", VLIBC_EXEC_WAIT, "-f", kStagingFile, kConfigTmpFile, nullptr) == 0) {
        return 0;
    }
    LogError()("Mv error");
    if (copy == Claim::kMade) {
        unlink(kConfigTmpFile);  // where there was no copy there is none
    }
    return -1;
}

}  // namespace
}  // namespace flashcache

using namespace flashcache;

int VEMOFlashCacheConfigSet(const FLASHCACHE_CONFIG* config) {
    if (config == nullptr || config->SectionName == nullptr || config->SSDUUID == nullptr) {
        SetError(VLIBC_ERR_BAD_PARAMETER);
        return -1;
    }
    return Guarded(-1, [&] { return SetEntry(*config); });
}

int VEMOFlashCacheConfigTmpUpdate(void) {
    const mode_t mode = ConfigMode();
    return CopyToStaging(mode) == 0 ? MoveToCopy(mode) : -1;
}
