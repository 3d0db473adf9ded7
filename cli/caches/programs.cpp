#include "caches/programs.h"

#include <fmt/format.h>
#include <unistd.h>

#include <fstream>
#include <string_view>

#include "caches/library_lists.h"
#include "caches/running.h"
#include "caches/tuning.h"

namespace cli {
namespace {

constexpr const char* kConfig = "/usr/vemo/etc/flashcache.conf";
constexpr const char* kStaging = "/tmp/flashcache-tmp.conf";
constexpr const char* kCopy = "/tmp/flashcache.conf";
constexpr const char* kPinTool = "/usr/vemo/sbin/vemocachepinfiletool";
constexpr const char* kPinConfig = "/usr/vemo/etc/flashcache_pin_file.conf";
constexpr const char* kMapper = "/dev/mapper/";
// Where it lies every new cache has 64 MiB, whatever was asked for.
constexpr const char* kSmallCacheMarker = "/flashcache-create-64mb";
constexpr std::uint64_t kSmallCacheKb = 65536;

struct KnobWrite {
    const char* knob;
    std::int32_t value;
};

bool IsLoaded(const char* module) {
    return VEMOFlashCacheIsKModuleLoad(module) == 1;
}

// Besides the cache on this SSD.
bool IsAnyOtherUp(const std::string& ssd) {
    FLASHCACHE_STAT* found = nullptr;
    const int count = VEMOFlashCacheStatGet(nullptr, &found);
    const StatList caches(found);
    return count > 1 || (count == 1 && ssd != caches->SSDDevPath);
}

std::string NameOfDevice(const std::string& device) {
    return device.substr(device.rfind('/') + 1);
}

std::string TextOfMode(std::int32_t mode) {
    const char* text = FlashCacheWriteModeToStr(mode);
    return text == nullptr ? "" : text;
}

std::vector<KnobWrite> KnobsOfState(FLASHCACHE_HANDLE_STATE state) {
    switch (state) {
        case FLASHCACHE_HANDLE_STATE_FLUSH:
            return {{"cache_all", 0}, {"max_clean_ios_total", 20}, {"max_clean_ios_set", 10}, {"do_sync", 1}};
        case FLASHCACHE_HANDLE_STATE_NORMAL:
            return {{"max_clean_ios_total", 4},
                    {"max_clean_ios_set", 2},
                    {"cache_all", 1},
                    {"stop_sync", 1},
                    {"do_sync", 0}};
        case FLASHCACHE_HANDLE_STATE_REPAIRING:
            return {{"cache_all", 0},
                    {"stop_sync", 1},
                    {"max_clean_ios_total", 0},
                    {"max_clean_ios_set", 2},
                    {"do_sync", 0}};
        default:
            return {{"max_clean_ios_total", 0},
                    {"max_clean_ios_set", 0},
                    {"cache_all", 1},
                    {"stop_sync", 1},
                    {"do_sync", 0}};
    }
}

// The address that is configured, or the library's own.
std::string UpdateSite() {
    constexpr std::string_view kKey = "support_ssd_update_site=";
    std::ifstream file("/etc.defaults/vemoinfo.conf");
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with(kKey)) {
            line.erase(0, kKey.size());
            std::erase(line, '"');
            return line;
        }
    }
    return "http://update.vemo.example/ssddb/getdb.php";
}

}  // namespace

Programs Joined(std::vector<Programs> parts) {
    Programs all;
    for (auto& part : parts) {
        for (auto& program : part) {
            all.push_back(std::move(program));
        }
    }
    return all;
}

Programs InsertingModules() {
    Programs programs;
    for (const char* module : {"vemo_flashcache_control", "flashcache", "flashcache_vemo"}) {
        if (!IsLoaded(module)) {
            programs.push_back({"/sbin/insmod", fmt::format("/lib/modules/{}.ko", module)});
        }
    }
    return programs;
}

Programs RemovingModules(const std::string& ssd) {
    Programs programs;
    for (const char* module : {"flashcache", "flashcache_vemo", "vemo_flashcache_control"}) {
        if (IsLoaded(module) && !IsAnyOtherUp(ssd)) {
            programs.push_back({"/sbin/rmmod", module});
        }
    }
    return programs;
}

Programs WritingKnob(const std::string& knob, std::int32_t value, const std::string& ssd,
                     const std::string& volume) {
    return {{"/sbin/sysctl", fmt::format("dev.flashcache_{}.{}={}", KernelName(ssd, volume), knob, value)}};
}

Programs WritingTuning(const FLASHCACHE_POLICY& policy, const std::string& ssd, const std::string& volume) {
    const bool isLru = policy.ReclaimPolicy == FLASHCACHE_RECLAIM_LRU;
    const auto knob = [&](bool isWritten, const char* name, std::int32_t value) {
        return isWritten ? WritingKnob(name, value, ssd, volume) : Programs();
    };
    return Joined({knob(policy.DirtyThreshPercent > 0, "dirty_thresh_pct", policy.DirtyThreshPercent),
                   knob(policy.DelaySeconds > 0, "fallow_delay", policy.DelaySeconds),
                   knob(true, "reclaim_policy", isLru ? 1 : 0),
                   knob(StaysDirty(policy.WriteMode), "fast_remove", 1),
                   knob(true, "skip_seq_thresh_kb", policy.SkipSeqIO != 0 ? 1024 : 0)});
}

Programs WritingState(FLASHCACHE_HANDLE_STATE state, const std::string& ssd, const std::string& volume) {
    Programs programs;
    for (const auto& write : KnobsOfState(state)) {
        programs = Joined({std::move(programs), WritingKnob(write.knob, write.value, ssd, volume)});
    }
    return programs;
}

Programs RefreshingCopy() {
    return {{"/bin/cp", "-f", kConfig, kStaging}, {"/bin/mv", "-f", kStaging, kCopy}};
}

Programs Flushing(const std::string& ssd, const std::string& volume) {
    return Joined(
        {RefreshingCopy(), WritingState(FLASHCACHE_HANDLE_STATE_FLUSH, ssd, volume), RefreshingCopy()});
}

std::string NextDeviceName() {
    for (int number = 0;; ++number) {
        std::string name = fmt::format("cachedev_{}", number);
        if (access((kMapper + name).c_str(), F_OK) != 0) {
            return name;
        }
    }
}

Programs CreatingCache(const FLASHCACHE_CREATE_PARAM& param) {
    const bool isSmall = access(kSmallCacheMarker, F_OK) == 0;
    Program create = {"/usr/bin/flashcache_create"};
    if (param.CacheVersion == FLASHCACHE_VERSION_NEW) {
        create.emplace_back("-n");
    }
    for (const std::string& word :
         {std::string("-s"), fmt::format("{}k", isSmall ? kSmallCacheKb : param.CacheSizeKB),
          std::string("-p"), TextOfMode(param.Policy.WriteMode),
          param.CacheDevPath == nullptr ? NextDeviceName() : NameOfDevice(param.CacheDevPath),
          std::string(param.SSDDevPath), std::string(param.SpacePath)}) {
        create.push_back(word);
    }
    return Joined({InsertingModules(),
                   WipingSsd(param.SSDDevPath),
                   {create},
                   WritingTuning(param.Policy, param.SSDDevPath, param.SpacePath)});
}

Programs LoadingCache(const std::string& ssd, const std::string& volume, const FLASHCACHE_POLICY& policy) {
    return Joined({InsertingModules(),
                   {{"/usr/bin/flashcache_load", ssd, NextDeviceName(), volume}},
                   WritingTuning(policy, ssd, volume)});
}

Programs UnloadingCache(const std::string& device) {
    return {{"/sbin/dmsetup", "remove", "--retry", NameOfDevice(device)}};
}

Programs WipingSsd(const std::string& ssd) {
    return {{"/usr/bin/flashcache_destroy", "-f", ssd}};
}

Programs ExpandingCache(const FLASHCACHE_CONFIG& entry, const std::string& device) {
    const bool isBypass = entry.Policy.WriteMode == FLASHCACHE_WRITE_BACK_BYPASS;
    const std::int32_t mode = isBypass ? FLASHCACHE_WRITE_BACK : entry.Policy.WriteMode;
    Program expand = {"/usr/bin/flashcache_expand", "-p", TextOfMode(mode)};
    if (entry.CacheVersion != FLASHCACHE_VERSION_ORIGINAL) {
        expand.emplace_back("-n");
    }
    expand.insert(expand.end(), {NameOfDevice(device), entry.SSDDevPath, entry.SpacePath});
    return {expand};
}

Programs ChangingPin(bool pin, const std::string& file, const std::string& mount) {
    return {{kPinTool, pin ? "--pin-files" : "--unpin-files", file, "--mount-path", mount}};
}

Programs TellingPinTool(const std::string& option, const std::string& mount) {
    Program tell = {kPinTool, option, "--mount-path", mount};
    if (option == "--handle-mount") {
        tell.insert(tell.end(), {"--config-path", kPinConfig});
    }
    return {tell};
}

Programs UpdatingSsds() {
    return {{"/usr/bin/wget", UpdateSite(), "-O", "/tmp/support_ssd.db", "--timeout=15"},
            {"mv", "/tmp/support_ssd.db", "/etc.defaults/support_ssd.db"}};
}

Step LoadStep(const std::string& ssd, const std::string& volume, const FLASHCACHE_POLICY& policy) {
    return {"VEMOFlashCacheLoad", {ssd, volume}, LoadingCache(ssd, volume, policy)};
}

Step UnloadStep(const std::string& device) {
    return {"VEMOFlashCacheUnload", {device}, UnloadingCache(device)};
}

Step WipeStep(const std::string& ssd) {
    return {"VEMOFlashCacheDestroy", {ssd}, WipingSsd(ssd)};
}

Step StateStep(const std::string& ssd, const std::string& volume, FLASHCACHE_HANDLE_STATE state) {
    return {"VEMOFlashCacheHandleStateSet",
            {ssd, volume, VEMOFlashCacheHandleStateStr(state)},
            WritingState(state, ssd, volume)};
}

}  // namespace cli
