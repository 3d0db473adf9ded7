#include "sweep/operations.h"

#include <unistd.h>

#include <array>
#include <cstdlib>

#include "support/appliance.h"

namespace sweep {
namespace {

using appliance::kCache;
using appliance::kSpace;
using appliance::kSsd;

constexpr const char* kSection = "mine";
constexpr const char* kShare = "/volume1/share";
const std::vector<int> kActs = {0, -1};
const std::vector<int> kAnswers = {0, 1};
const std::vector<int> kReads = {0, 1, -1};

Result Plain(int value) {
    return {value, ""};
}

FLASHCACHE_CONFIG_SEARCH BySection() {
    FLASHCACHE_CONFIG_SEARCH search{};
    search.type = FLASHCACHE_SEARCH_BY_SECTION;
    search.SectionName = kSection;
    return search;
}

Result ReadEntries(decltype(VEMOFlashCacheConfigGet)* read, bool all) {
    const FLASHCACHE_CONFIG_SEARCH search = BySection();
    FLASHCACHE_CONFIG* list = nullptr;
    const int count = read(all ? nullptr : &search, &list);
    const bool isConsistent = (count > 0) == (list != nullptr);
    VEMOFlashCacheConfigFree(list);
    return {count, isConsistent ? "" : "the list does not fit the result"};
}

Result WriteEntry() {
    char uuid[] = "U-1";
    char section[] = "written";
    char ssd[] = "/dev/md9";
    FLASHCACHE_CONFIG config{};
    config.SSDUUID = uuid;
    config.SectionName = section;
    config.SSDDevPath = ssd;
    return Plain(VEMOFlashCacheConfigSet(&config));
}

Result DeleteEntry() {
    const FLASHCACHE_CONFIG_SEARCH search = BySection();
    return Plain(VEMOFlashCacheConfigDelete(&search));
}

Result Describe() {
    FLASHCACHE_STAT* list = nullptr;
    const int count = VEMOFlashCacheStatGet(nullptr, &list);
    const bool isConsistent = (count > 0) == (list != nullptr);
    VEMOFlashCacheStatFree(&list);
    return {count, isConsistent ? "" : "the list does not fit the result"};
}

Result ReadSerials() {
    VLIBC_SZLIST* serials = nullptr;
    const int result = VEMOFlashcacheConfigSerialListGet("c", &serials);
    const bool isConsistent = (result == 1) == (serials != nullptr);
    VLIBCSzListFree(serials);
    return {result, isConsistent ? "" : "the list does not fit the result"};
}

Result ReadSupported() {
    FLASHCACHE_SUPPORT_SSD_LIST* list = nullptr;
    const int count = VEMOFlashCacheSupportSSDGet(&list);
    VEMOFlashCacheSupportSSDFree(list);
    return Plain(count < 0 ? -1 : count > 0 ? 1 : 0);
}

Result ReadKnob() {
    std::int32_t value = -7;
    const int result = VEMOFlashCacheSysctlGet(FLASHCACHE_SYSCTL_CACHE_ALL, kSsd, kSpace, &value);
    return {result, result == 0 && value != 1 ? "another value than the knob's" : ""};
}

Result Name(char* text) {
    const bool isThere = text != nullptr;
    std::free(text);
    return Plain(isThere ? 1 : 0);
}

Result ReadAges() {
    std::array<FLASHCACHE_FILE_STAT_DAY, 7> days{};
    std::array<char, 256> name{};
    std::array<char, 256> time{};
    return Plain(FlashcacheFileStatisticsGetAndParse(days.data(), 7, name.data(), 256, time.data(), 256));
}

Result Create() {
    FLASHCACHE_CREATE_PARAM param{};
    param.SSDDevPath = kSsd;
    param.SpacePath = kSpace;
    param.CacheSizeKB = 16 * 1024;
    param.Policy.WriteMode = FLASHCACHE_WRITE_BACK;
    param.CacheVersion = FLASHCACHE_VERSION_ORIGINAL;
    return Plain(VEMOFlashCacheCreate(&param, nullptr, 0));
}

Result Bytes(int (*read)(const FLASHCACHE_STAT_SEARCH*, uint64_t*)) {
    uint64_t bytes = 0;
    return Plain(read(nullptr, &bytes));
}

std::vector<Operation> ConfigOperations() {
    return {
        {"ConfigGet", {2, -1}, [] { return ReadEntries(VEMOFlashCacheConfigGet, true); }, {}},
        {"ConfigGetOne", kReads, [] { return ReadEntries(VEMOFlashCacheConfigGet, false); }, {}},
        {"ConfigTmpGet", {2, -1}, [] { return ReadEntries(VEMOFlashCacheConfigTmpGet, true); }, {}},
        {"ConfigSet", kActs, WriteEntry, {}},
        {"ConfigDelete", kActs, DeleteEntry, {}},
        {"ConfigTmpUpdate", kActs, [] { return Plain(VEMOFlashCacheConfigTmpUpdate()); }, {}},
        {"SerialListSet", kActs, [] { return Plain(VEMOFlashcacheConfigSerialListSet("d", "S3,S4")); }, {}},
        {"SerialListGet", kReads, ReadSerials, {}},
        {"SerialListDelete", kActs, [] { return Plain(VEMOFlashcacheConfigSerialListDelete("c")); }, {}},
        {"IsRemoveInFlushState",
         kAnswers,
         [] { return Plain(VEMOFlashCacheIsRemoveInFlushState(kSsd, FLASHCACHE_FLUSH_STATE_NORMAL)); },
         {}},
        {"ApmFlushStatusSet", kActs, [] { return Plain(VEMOFlashCacheApmFlushStatusSet("k", 1)); }, {}},
        {"IsApmFlushDone", kAnswers, [] { return Plain(VEMOFlashCacheIsApmFlushDone("k")); }, {}},
    };
}

std::vector<Operation> KernelOperations() {
    return {
        {"SysctlGet", kActs, ReadKnob, {}},
        {"SysctlSet",
         kActs,
         [] { return Plain(VEMOFlashCacheDoSysctlSet(FLASHCACHE_SYSCTL_FALLOW_DELAY, 60, kSsd, kSpace)); },
         {}},
        {"SetNormalState", kActs, [] { return Plain(SetNormalState(kSsd, kSpace)); }, {}},
        {"HandleStateGet",
         {1, -1},
         [] { return Plain(VEMOFlashCacheHandleStateGet(kSsd, kSpace)); },
         [] { SetNormalState(kSsd, kSpace); }},
        {"AttributeGet", {0, -1}, [] { return Plain(VEMOFlashCacheAttributeGet(kSsd, kSpace)); }, {}},
        {"AttributeSet",
         kActs,
         [] { return Plain(VEMOFlashCacheAttributeSet(kSsd, kSpace, FLASHCACHE_ATTRIBUTE_NONE)); },
         {}},
        {"StatGet", {1, -1}, Describe, {}},
        {"CacheSizeGet", kActs, [] { return Bytes(VEMOFlashCacheCacheSizeGet); }, {}},
        {"UsedMemGet", kActs, [] { return Bytes(VEMOFlashcacheUsedMemGet); }, {}},
        {"TotalMemory",
         {0, -1, 1, 2},
         [] {
             uint64_t bytes = 0;
             return Plain(VEMOFlashCacheGetTotalMemoryConsumptionByte(&bytes));
         },
         {}},
        {"ProcRead",
         kAnswers,
         [] { return Name(FlashCacheUtilProcRead(kSsd, kSpace, "flashcache_progress")); },
         {}},
        {"CheckMetadataExist", kAnswers, [] { return Plain(VEMOFlashCacheCheckMetadataExist(kSsd)); }, {}},
        {"IsKModuleLoad", kAnswers, [] { return Plain(VEMOFlashCacheIsKModuleLoad("flashcache")); }, {}},
        {"FlushCancel", kReads, [] { return Plain(VEMOFlashCacheFlushCancel(kCache)); }, {}},
        {"SupportSSDGet", kReads, ReadSupported, {}},
        {"IsSSDSupport", kAnswers, [] { return Plain(VEMOFlashCacheIsSSDSupport("QM-S400|240")); }, {}},
    };
}

std::vector<Operation> FileOperations() {
    return {
        {"PinAddFiles",
         kActs,
         [] { return Plain(VEMOFlashCachePinAddFiles("/volume1/share/file", "/volume1")); },
         {}},
        {"PinIsVolumeSupport",
         kAnswers,
         [] { return Plain(VEMOFlashCachePinIsVolumeSupport("/volume1")); },
         {}},
        {"DoStatistics", kActs, [] { return Plain(FlashcacheDoStatistics("volume1", "/volume1")); }, {}},
        {"FileStatistics", kActs, [] { return Plain(FlashcacheFileStatistics("volume1", "/volume1")); }, {}},
        {"GetAndParse", kActs, ReadAges, [] { FlashcacheFileStatistics("volume1", "/volume1"); }},
    };
}

// They take the cache away or make it; what they are to begin on is made anew for each try.
std::vector<Operation> LifeOperations() {
    const auto absent = [] { VEMOFlashCacheUnload(kCache); };
    const auto present = [] {
        VEMOFlashCacheUnload(kCache);
        Create();
    };
    const auto unloaded = [present] {
        present();
        VEMOFlashCacheUnload(kCache);
    };
    return {
        {"Create", kActs, Create, absent, true},
        {"Load", kActs, [] { return Plain(VEMOFlashCacheLoad(kSsd, kSpace, nullptr, 0)); }, unloaded, true},
        {"Unload", kActs, [] { return Plain(VEMOFlashCacheUnload(kCache)); }, present, true},
        {"Flush", kReads, [] { return Plain(VEMOFlashCacheFlush(kCache)); }, present, true},
        {"Delete", kActs, [] { return Plain(VEMOFlashCacheDelete(kCache, nullptr, 0)); }, present, true},
    };
}

}  // namespace

const std::vector<Operation>& Operations() {
    static const std::vector<Operation> all = [] {
        std::vector<Operation> operations;
        for (const auto& part :
             {ConfigOperations(), KernelOperations(), FileOperations(), LifeOperations()}) {
            operations.insert(operations.end(), part.begin(), part.end());
        }
        return operations;
    }();
    return all;
}

void PrepareAppliance() {
    appliance::AddEntry(kSection, kSsd, kSpace);
    appliance::AddEntry("another", "/dev/md8", "/dev/vg1/volume_8");
    VEMOFlashcacheConfigSerialListSet("c", "S1,S2");
    VEMOFlashCacheApmFlushStatusSet("k", 1);
    Create();
    appliance::RunProgram({"mkdir", "-p", kShare});
    appliance::Touch(std::string(kShare) + "/file");
}

}  // namespace sweep
