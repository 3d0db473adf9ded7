#include "sweep/operations.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>

#include "support/appliance.h"

namespace sweep {
namespace {

using appliance::kCache;
using appliance::kSpace;
using appliance::kSsd;

constexpr const char* kSection = "mine";
constexpr const char* kPinned = "/volume2";  // a volume that is mounted
constexpr const char* kFile = "/volume2/share/file";
constexpr const char* kMarker = "/tmp/flashcache_file_statistics_processing";
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
    param.CacheSizeKB = 16384;
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

void RecordFlush() {
    for (const char* file : {appliance::kConfig, appliance::kConfigCopy}) {
        appliance::Replace(file, "[mine]\n", "[mine]\n\tFlushState=flushing\n");
    }
}

std::string FinishCancel() {
    VEMOFlashCacheFlushCancel(kCache);
    return appliance::FlushStateOf() == "normal" ? "" : "the flush cannot be cancelled";
}

std::vector<Operation> KernelOperations() {
    return {
        {"SysctlGet", kActs, ReadKnob, [] { SetNormalState(kSsd, kSpace); }},
        {"SysctlSet",
         kActs,
         [] { return Plain(VEMOFlashCacheDoSysctlSet(FLASHCACHE_SYSCTL_FALLOW_DELAY, 60, kSsd, kSpace)); },
         {}},
        {"SetNormalState", kActs, [] { return Plain(SetNormalState(kSsd, kSpace)); }, {}},
        {"SetFlushState", kActs, [] { return Plain(SetFlushState(kSsd, kSpace)); },
         [] { SetNormalState(kSsd, kSpace); }},
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
        {"FlushCancel", kReads, [] { return Plain(VEMOFlashCacheFlushCancel(kCache)); }, RecordFlush, false,
         FinishCancel},
        {"SupportSSDGet", kReads, ReadSupported, {}},
        {"IsSSDSupport", kAnswers, [] { return Plain(VEMOFlashCacheIsSSDSupport("QM-S400|240")); }, {}},
    };
}

// The marker of a run that died stays, and does not count; whoever looks after it removes it.
std::string FinishStatistics(decltype(FlashcacheDoStatistics)* run) {
    if (FlashcacheFileStatisticsIsProcessing() != 0) {
        return "a run that died counts as one in progress";
    }
    unlink(kMarker);
    return run("volume2", kPinned) == 0 ? "" : "a new process cannot count the files";
}

// What is no longer pinned cannot be unpinned.
std::string FinishUnpinning() {
    std::uint32_t isAdded = 1;
    VEMOFlashCachePinRemoveFiles(kFile, kPinned);
    const bool isTold = VEMOFlashCachePinIsFileAdded(kFile, &isAdded) == 0;
    return isTold && isAdded == 0 ? "" : "the file cannot be unpinned";
}

void RemoveMarker() {
    unlink(kMarker);
}

std::vector<Operation> FileOperations() {
    return {
        {"PinAddFiles", kActs, [] { return Plain(VEMOFlashCachePinAddFiles(kFile, kPinned)); }, {}},
        {"PinRemoveFiles", kActs, [] { return Plain(VEMOFlashCachePinRemoveFiles(kFile, kPinned)); },
         [] { VEMOFlashCachePinAddFiles(kFile, kPinned); }, false, FinishUnpinning},
        {"PinIsVolumeSupport", kAnswers, [] { return Plain(VEMOFlashCachePinIsVolumeSupport(kPinned)); }, {}},
        {"DoStatistics", kActs, [] { return Plain(FlashcacheDoStatistics("volume2", kPinned)); },
         RemoveMarker, false, [] { return FinishStatistics(FlashcacheDoStatistics); }},
        {"FileStatistics", kActs, [] { return Plain(FlashcacheFileStatistics("volume2", kPinned)); },
         RemoveMarker, false, [] { return FinishStatistics(FlashcacheFileStatistics); }},
        {"GetAndParse", kActs, ReadAges, [] { FlashcacheFileStatistics("volume2", kPinned); }},
    };
}

// What the cache held before its life was changed; it is dirty in part.
constexpr int kBlocks = 8;

bool IsUp() {
    return access(kCache, F_OK) == 0;
}

void TakeDown() {
    if (IsUp()) {
        VEMOFlashCacheUnload(kCache);
    }
}

void MakeUp() {
    TakeDown();
    Create();
    appliance::WriteBlocks(kCache, kBlocks);
}

void MakeConfigured() {
    MakeUp();
    TakeDown();
}

void MakeOutgrown() {
    static int megabytes = 2048;
    MakeUp();
    appliance::RunProgram({"vemo-appliance", "grow", kSpace, std::to_string(++megabytes) + "M"});
}

std::string LoadWhatIsDown() {
    return IsUp() || VEMOFlashCacheLoad(kSsd, kSpace, nullptr, 0) == 0 ? "" : "it cannot be loaded";
}

std::string HoldsAll(const char* device) {
    return appliance::HoldsBlocks(device, kBlocks) ? "" : std::string(device) + " has lost what was written";
}

std::string FinishCreate() {
    TakeDown();
    return Create().value == 0 ? "" : "it cannot be created";
}

std::string FinishLoad() {
    std::string wrong = LoadWhatIsDown();
    return wrong.empty() ? HoldsAll(kCache) : wrong;
}

std::string FinishUnload() {
    if (IsUp() && VEMOFlashCacheUnload(kCache) != 0) {
        return "it cannot be unloaded";
    }
    return FinishLoad();
}

std::string FinishFlush() {
    return VEMOFlashCacheFlush(kCache) < 0 ? "it cannot be flushed" : HoldsAll(kSpace);
}

std::string FinishDelete() {
    if (IsUp() && VEMOFlashCacheDelete(kCache, nullptr, 0) != 0) {
        return "it cannot be deleted";
    }
    return HoldsAll(kSpace);
}

std::string FinishExpand() {
    if (std::string wrong = LoadWhatIsDown(); !wrong.empty()) {
        return wrong;
    }
    return VEMOFlashCacheExpand(kSpace) != 0 ? "it cannot be expanded" : HoldsAll(kCache);
}

// They take the cache away or make it; what they are to begin on is made anew for each try.
std::vector<Operation> LifeOperations() {
    return {
        {"Create", kActs, Create, TakeDown, true, FinishCreate},
        {"Load", kActs, [] { return Plain(VEMOFlashCacheLoad(kSsd, kSpace, nullptr, 0)); }, MakeConfigured,
         true, FinishLoad},
        {"Unload", kActs, [] { return Plain(VEMOFlashCacheUnload(kCache)); }, MakeUp, true, FinishUnload},
        {"Flush", kReads, [] { return Plain(VEMOFlashCacheFlush(kCache)); }, MakeUp, true, FinishFlush},
        {"Delete", kActs, [] { return Plain(VEMOFlashCacheDelete(kCache, nullptr, 0)); }, MakeUp, true,
         FinishDelete},
        {"Expand", kActs, [] { return Plain(VEMOFlashCacheExpand(kSpace)); }, MakeOutgrown, true,
         FinishExpand},
    };
}

constexpr const char* kWriting[] = {"ConfigSet",
                                    "ConfigDelete",
                                    "ConfigTmpUpdate",
                                    "SerialListSet",
                                    "SerialListDelete",
                                    "ApmFlushStatusSet",
                                    "SysctlSet",
                                    "SetNormalState",
                                    "SetFlushState",
                                    "AttributeSet",
                                    "FlushCancel",
                                    "PinAddFiles",
                                    "PinRemoveFiles",
                                    "DoStatistics",
                                    "FileStatistics",
                                    "Create",
                                    "Load",
                                    "Unload",
                                    "Flush",
                                    "Delete",
                                    "Expand"};

}  // namespace

const std::vector<Operation>& Operations() {
    static const std::vector<Operation> all = [] {
        std::vector<Operation> operations;
        for (const auto& part :
             {ConfigOperations(), KernelOperations(), FileOperations(), LifeOperations()}) {
            operations.insert(operations.end(), part.begin(), part.end());
        }
        for (Operation& operation : operations) {
            operation.writes = std::ranges::find(kWriting, operation.name) != std::end(kWriting);
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
    appliance::RunProgram({"mkfs.ext4", "-q", "-F", "/dev/vg1/volume_2"});
    appliance::RunProgram({"mkdir", "-p", kPinned});
    appliance::RunProgram({"mount", "/dev/vg1/volume_2", kPinned});
    appliance::RunProgram({"mkdir", "-p", "/volume2/share"});
    WriteWhole(kFile, std::string(200000, 'f'));
}

}  // namespace sweep
