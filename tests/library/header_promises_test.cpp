// What the header promises of bad arguments, held against every exported function: the result, the code in
// the error slot, a line in the log, and that nothing was run.
#include <dlfcn.h>

#include <set>

#include "support/library_test.h"

namespace {

// A code that nothing of ours sets: where it is still there afterwards, the call recorded none.
constexpr int kCallersCode = 0x7777;

enum class Told { kNothing, kByCode, kInLog, kBoth };

struct Promise {
    const char* function;
    double (*call)();
    double result;  // a pointer counts as 1, NULL as 0
    Told told;
    bool runsPrograms = false;
};

double Exists(const void* pointer) {
    return pointer == nullptr ? 0 : 1;
}

// A call of a function that returns nothing.
double Quiet(void (*call)()) {
    call();
    return 0;
}

char text[64];
int number;
uint64_t size;
FLASHCACHE_COUNT_STAT counters;
FLASHCACHE_STAT* caches;
FLASHCACHE_FILE_STAT_DAY days[7];
const char* const kSsd = "/dev/md3";
const char* const kSpace = "/dev/vg1/volume_1";

int ConfigSet(const char* section, const char* uuid, int32_t reclaim = 0, int32_t mode = 0) {
    FLASHCACHE_CONFIG entry{};
    entry.SectionName = const_cast<char*>(section);
    entry.SSDUUID = const_cast<char*>(uuid);
    entry.Policy.ReclaimPolicy = reclaim;
    entry.Policy.WriteMode = mode;
    return VEMOFlashCacheConfigSet(&entry);
}

int Stat(FLASHCACHE_SEARCH_TYPE type) {
    FLASHCACHE_STAT_SEARCH search{};
    search.type = type;
    return VEMOFlashCacheStatGet(&search, &caches);
}

int Create(const char* ssd, const char* space, uint64_t sizeKB, const char* cache = nullptr,
           int32_t mode = 0) {
    FLASHCACHE_CREATE_PARAM param{};
    param.SSDDevPath = ssd;
    param.SpacePath = space;
    param.CacheDevPath = cache;
    param.CacheSizeKB = sizeKB;
    param.Policy.WriteMode = mode;
    return VEMOFlashCacheCreate(&param, nullptr, 0);
}

int CheckSsd(const char* model, uint64_t bytes) {
    const FLASHCACHE_SSD_INFO ssd{model, bytes};
    return VEMOFlashCacheCheckSSDSupport(&ssd);
}

int Parse(FLASHCACHE_FILE_STAT_DAY* out, int count, int volumeSize, int timeSize) {
    return FlashcacheFileStatisticsGetAndParse(out, count, text, volumeSize, text, timeSize);
}

using enum Told;

// clang-format off: a line a promise
const Promise kFrameAndConfig[] = {
    {"VEMOFlashCacheLock", [] { return 0. + VEMOFlashCacheLock(nullptr, 1, &number); }, 0, kInLog},
    {"VEMOFlashCacheLock", [] { return 0. + VEMOFlashCacheLock("/run/lock/x", 1, nullptr); }, 0, kInLog},
    {"VEMOFlashCacheUnlock", [] { return 0. + VEMOFlashCacheUnlock(-1); }, 0, kInLog},
    {"VEMOFlashCacheGetShortDevName", [] { return Exists(VEMOFlashCacheGetShortDevName(nullptr)); }, 0, kInLog},
    {"VEMOFlashCacheGetShortDevName", [] { return Exists(VEMOFlashCacheGetShortDevName("md3")); }, 0, kInLog},
    {"FlashCacheUtilProcRead", [] { return Exists(FlashCacheUtilProcRead(nullptr, kSpace, "e")); }, 0, kInLog},
    {"FlashCacheUtilProcRead", [] { return Exists(FlashCacheUtilProcRead(kSsd, nullptr, "e")); }, 0, kInLog},
    {"FlashCacheUtilProcRead", [] { return Exists(FlashCacheUtilProcRead(kSsd, kSpace, nullptr)); }, 0, kInLog},
    {"FlashCacheUtilProcRead", [] { return Exists(FlashCacheUtilProcRead("md3", kSpace, "e")); }, 0, kInLog},
    {"VEMOFCCopyFile", [] { return 0. + VEMOFCCopyFile(nullptr, "/tmp/x"); }, -1, kInLog},
    {"VEMOFCCopyFile", [] { return 0. + VEMOFCCopyFile("/tmp/x", nullptr); }, -1, kInLog},
    {"VEMOFCCheckDirExistOrCreate", [] { return 0. + VEMOFCCheckDirExistOrCreate(nullptr); }, -1, kInLog},
    {"VEMOFlashCacheConfigGet", [] { return 0. + VEMOFlashCacheConfigGet(nullptr, nullptr); }, 0, kNothing},
    {"VEMOFlashCacheConfigTmpGet", [] { return 0. + VEMOFlashCacheConfigTmpGet(nullptr, nullptr); }, 0, kNothing},
    {"VEMOFlashCacheConfSearch", [] { return 0. + VEMOFlashCacheConfSearch(nullptr, nullptr, nullptr); }, -1, kByCode},
    {"VEMOFlashCacheConfigFree", [] { return Quiet([] { VEMOFlashCacheConfigFree(nullptr); }); }, 0, kNothing},
    {"VEMOFlashCacheConfigSet", [] { return 0. + VEMOFlashCacheConfigSet(nullptr); }, -1, kByCode},
    {"VEMOFlashCacheConfigSet", [] { return 0. + ConfigSet(nullptr, "u"); }, -1, kByCode},
    {"VEMOFlashCacheConfigSet", [] { return 0. + ConfigSet("s", nullptr); }, -1, kByCode},
    {"VEMOFlashCacheConfigSet", [] { return 0. + ConfigSet("s", "u", 2); }, -1, kInLog},
    {"VEMOFlashCacheConfigSet", [] { return 0. + ConfigSet("s", "u", 0, 3); }, -1, kInLog},
    {"VEMOFlashCacheConfigTmpUpdate", [] { return 0. + VEMOFlashCacheConfigTmpUpdate(); }, -1, kInLog, true},
    {"VEMOFlashCacheConfigDelete", [] { return 0. + VEMOFlashCacheConfigDelete(nullptr); }, 0, kNothing},
    {"VEMOFlashCacheConfigDelete", [] { const FLASHCACHE_CONFIG_SEARCH none{}; return 0. + VEMOFlashCacheConfigDelete(&none); }, -1, kInLog, true},
    {"VEMOFlashcacheConfigSerialListGet", [] { VLIBC_SZLIST* list = nullptr; return 0. + VEMOFlashcacheConfigSerialListGet(nullptr, &list); }, -1, kInLog},
    {"VEMOFlashcacheConfigSerialListGet", [] { return 0. + VEMOFlashcacheConfigSerialListGet("s", nullptr); }, -1, kInLog},
    {"VEMOFlashcacheConfigSerialListSet", [] { return 0. + VEMOFlashcacheConfigSerialListSet(nullptr, "A"); }, -1, kInLog},
    {"VEMOFlashcacheConfigSerialListSet", [] { return 0. + VEMOFlashcacheConfigSerialListSet("s", nullptr); }, -1, kInLog},
    {"VEMOFlashcacheConfigSerialListDelete", [] { return 0. + VEMOFlashcacheConfigSerialListDelete(nullptr); }, -1, kInLog},
    {"VEMOFlashcacheConfigSerialListCheck", [] { return 0. + VEMOFlashcacheConfigSerialListCheck(nullptr, nullptr); }, 0, kInLog},
    {"VEMOFlashCacheCheckSendMissingNotification", [] { return 0. + VEMOFlashCacheCheckSendMissingNotification(nullptr); }, -1, kInLog},
};

const Promise kKernel[] = {
    {"VEMOFlashCacheSysctlDevNameGet", [] { return Exists(VEMOFlashCacheSysctlDevNameGet(nullptr, kSpace)); }, 0, kByCode},
    {"VEMOFlashCacheSysctlDevNameGet", [] { return Exists(VEMOFlashCacheSysctlDevNameGet(kSsd, nullptr)); }, 0, kByCode},
    {"VEMOFlashCacheSysctlDevNameGet", [] { return Exists(VEMOFlashCacheSysctlDevNameGet("md3", kSpace)); }, 0, kBoth},
    {"VEMOFlashCacheSysctlGet", [] { return 0. + VEMOFlashCacheSysctlGet(0, kSsd, kSpace, &number); }, -1, kByCode},
    {"VEMOFlashCacheSysctlGet", [] { return 0. + VEMOFlashCacheSysctlGet(17, kSsd, kSpace, &number); }, -1, kByCode},
    {"VEMOFlashCacheSysctlGet", [] { return 0. + VEMOFlashCacheSysctlGet(1, nullptr, kSpace, &number); }, -1, kByCode},
    {"VEMOFlashCacheSysctlGet", [] { return 0. + VEMOFlashCacheSysctlGet(1, kSsd, nullptr, &number); }, -1, kByCode},
    {"VEMOFlashCacheSysctlGet", [] { return 0. + VEMOFlashCacheSysctlGet(1, kSsd, "x", &number); }, -1, kBoth},
    {"VEMOFlashCacheSysctlGet", [] { return 0. + VEMOFlashCacheSysctlGet(1, kSsd, kSpace, nullptr); }, -1, kInLog},
    {"VEMOFlashCacheDoSysctlSet", [] { return 0. + VEMOFlashCacheDoSysctlSet(0, 1, kSsd, kSpace); }, -1, kByCode},
    {"VEMOFlashCacheDoSysctlSet", [] { return 0. + VEMOFlashCacheDoSysctlSet(1, 1, nullptr, kSpace); }, -1, kByCode},
    {"VEMOFlashCacheDoSysctlSet", [] { return 0. + VEMOFlashCacheDoSysctlSet(1, 1, kSsd, nullptr); }, -1, kByCode},
    {"VEMOFlashCacheDoSysctlSet", [] { return 0. + VEMOFlashCacheDoSysctlSet(1, 1, "md3", kSpace); }, -1, kBoth},
    {"VEMOFlashCacheSysctlSet", [] { return 0. + VEMOFlashCacheSysctlSet(nullptr, kSsd, kSpace); }, -1, kByCode},
    {"VEMOFlashCacheSysctlSet", [] { const FLASHCACHE_POLICY policy{}; return 0. + VEMOFlashCacheSysctlSet(&policy, nullptr, kSpace); }, -1, kByCode},
    {"VEMOFlashCacheSysctlSet", [] { const FLASHCACHE_POLICY policy{}; return 0. + VEMOFlashCacheSysctlSet(&policy, kSsd, "x"); }, -1, kBoth},
    {"SetFlushState", [] { return 0. + SetFlushState(nullptr, kSpace); }, -1, kByCode},
    {"SetNormalState", [] { return 0. + SetNormalState(kSsd, nullptr); }, -1, kByCode},
    {"SetRepairingState", [] { return 0. + SetRepairingState("md3", kSpace); }, -1, kBoth},
    {"SetStopWritebackState", [] { return 0. + SetStopWritebackState(kSsd, "x"); }, -1, kBoth},
    {"VEMOFlashCacheHandleStateSet", [] { return 0. + VEMOFlashCacheHandleStateSet(nullptr, kSpace, 1); }, -1, kInLog},
    {"VEMOFlashCacheHandleStateSet", [] { return 0. + VEMOFlashCacheHandleStateSet(kSsd, kSpace, -1); }, -1, kInLog},
    {"VEMOFlashCacheHandleStateSet", [] { return 0. + VEMOFlashCacheHandleStateSet(kSsd, kSpace, 7); }, -1, kNothing},
    {"VEMOFlashCacheHandleStateGet", [] { return 0. + VEMOFlashCacheHandleStateGet(kSsd, nullptr); }, -1, kInLog},
    {"VEMOFlashCacheHandleStateGet", [] { return 0. + VEMOFlashCacheHandleStateGet("md3", kSpace); }, -1, kBoth},
    {"VEMOFlashCacheHandleStateStr", [] { return Exists(VEMOFlashCacheHandleStateStr(-1)); }, 1, kNothing},
    {"VEMOFlashCacheHandleStateStr", [] { return Exists(VEMOFlashCacheHandleStateStr(4)); }, 1, kInLog},
    {"VEMOFlashCacheAttributeGet", [] { return 0. + VEMOFlashCacheAttributeGet(nullptr, kSpace); }, -1, kInLog},
    {"VEMOFlashCacheAttributeGet", [] { return 0. + VEMOFlashCacheAttributeGet("md3", kSpace); }, -1, kInLog},
    {"VEMOFlashCacheAttributeSet", [] { return 0. + VEMOFlashCacheAttributeSet(kSsd, nullptr, 0); }, -1, kInLog},
    {"VEMOFlashCacheAttributeSet", [] { return 0. + VEMOFlashCacheAttributeSet(kSsd, kSpace, -1); }, -1, kInLog},
    {"VEMOFlashCacheAttributeSet", [] { return 0. + VEMOFlashCacheAttributeSet(kSsd, "x", 0); }, -1, kInLog},
};

const Promise kStatus[] = {
    {"VEMOFlashCacheStatGet", [] { return 0. + VEMOFlashCacheStatGet(nullptr, nullptr); }, -1, kByCode},
    {"VEMOFlashCacheStatGet", [] { return 0. + Stat(FLASHCACHE_SEARCH_BY_SECTION); }, -1, kByCode},
    {"VEMOFlashCacheStatGet", [] { return 0. + Stat(FLASHCACHE_SEARCH_BY_SSD_DEV_PATH); }, -1, kByCode},
    {"VEMOFlashCacheStatGet", [] { return 0. + Stat(FLASHCACHE_SEARCH_BY_SPACE_PATH); }, -1, kByCode},
    {"VEMOFlashCacheStatGet", [] { return 0. + Stat(FLASHCACHE_SEARCH_BY_CACHE_DEV_PATH); }, -1, kByCode},
    {"VEMOFlashCacheStatFree", [] { return Quiet([] { VEMOFlashCacheStatFree(nullptr); }); }, 0, kNothing},
    {"VEMOFlashcacheGetCachePath", [] { return 0. + VEMOFlashcacheGetCachePath(nullptr, text, 9); }, -1, kByCode},
    {"VEMOFlashcacheGetCachePath", [] { return 0. + VEMOFlashcacheGetCachePath(kSsd, nullptr, 9); }, -1, kByCode},
    {"VEMOFlashcacheGetCachePath", [] { return 0. + VEMOFlashcacheGetCachePath(kSsd, text, 0); }, -1, kByCode},
    {"VEMOFlashcacheGetCachePath", [] { return 0. + VEMOFlashcacheGetCachePath(kSsd, text, 9); }, -1, kInLog},
    {"VEMOFlashCacheSSDPathGet", [] { return 0. + VEMOFlashCacheSSDPathGet(nullptr, text, 9); }, -1, kByCode},
    {"VEMOFlashCacheSSDPathGet", [] { return 0. + VEMOFlashCacheSSDPathGet(kSsd, text, 9); }, -1, kByCode},
    {"VEMOFlashCacheSSDPathGet", [] { return 0. + VEMOFlashCacheSSDPathGet("/dev/mapper/cachedev_0", text, 0); }, -1, kByCode},
    {"VEMOFlashCacheCountStatGet", [] { return 0. + VEMOFlashCacheCountStatGet(nullptr, "v", 1, &counters); }, -1, kNothing},
    {"VEMOFlashCacheCountStatGet", [] { return 0. + VEMOFlashCacheCountStatGet("m", nullptr, 1, &counters); }, -1, kNothing},
    {"VEMOFlashCacheCountStatGet", [] { return 0. + VEMOFlashCacheCountStatGet("m", "v", 1, nullptr); }, -1, kNothing},
    {"VEMOFlashCacheCacheSizeGet", [] { return 0. + VEMOFlashCacheCacheSizeGet(nullptr, nullptr); }, -1, kByCode},
    {"VEMOFlashcacheUsedMemGet", [] { return 0. + VEMOFlashcacheUsedMemGet(nullptr, nullptr); }, -1, kByCode},
    {"VEMOFlashCacheGetCacheMemoryComsuptionKb", [] { return 0. + VEMOFlashCacheGetCacheMemoryComsuptionKb(nullptr); }, 416, kNothing},
    {"VEMOFlashCacheGetTotalMemoryConsumptionByte", [] { return 0. + VEMOFlashCacheGetTotalMemoryConsumptionByte(nullptr); }, -1, kInLog},
};

const Promise kLifecycleAndFlush[] = {
    {"VEMOFlashCacheIsKModuleLoad", [] { return 0. + VEMOFlashCacheIsKModuleLoad(nullptr); }, 0, kInLog},
    {"CheckAndInsertSingleModule", [] { return 0. + CheckAndInsertSingleModule(nullptr); }, -1, kInLog},
    {"CheckAndInsertKernelModule", [] { return 0. + CheckAndInsertKernelModule(); }, -1, kInLog, true},
    {"FlashCacheWriteModeToStr", [] { return Exists(FlashCacheWriteModeToStr(3)); }, 0, kInLog},
    {"VEMOFlashCacheCreate", [] { return 0. + VEMOFlashCacheCreate(nullptr, nullptr, 0); }, -1, kByCode},
    {"VEMOFlashCacheCreate", [] { return 0. + Create(nullptr, kSpace, 1); }, -1, kByCode},
    {"VEMOFlashCacheCreate", [] { return 0. + Create(kSsd, nullptr, 1); }, -1, kByCode},
    {"VEMOFlashCacheCreate", [] { return 0. + Create(kSsd, kSpace, 0); }, -1, kByCode},
    {"VEMOFlashCacheCreate", [] { return 0. + Create(kSsd, kSpace, 1, "/dev/mapper/x"); }, -1, kByCode},
    {"VEMOFlashCacheCreate", [] { return 0. + Create(kSsd, kSpace, 1, nullptr, 3); }, -1, kBoth},
    {"VEMOFlashCacheLoad", [] { return 0. + VEMOFlashCacheLoad(nullptr, kSpace, nullptr, 0); }, -1, kInLog},
    {"VEMOFlashCacheLoad", [] { return 0. + VEMOFlashCacheLoad(kSsd, nullptr, nullptr, 0); }, -1, kInLog},
    {"VEMOFlashCacheUnload", [] { return 0. + VEMOFlashCacheUnload(nullptr); }, -1, kByCode},
    {"VEMOFlashCacheUnload", [] { return 0. + VEMOFlashCacheUnload(kSsd); }, -1, kByCode},
    {"VEMOFlashCacheCheckMetadataExist", [] { return 0. + VEMOFlashCacheCheckMetadataExist(nullptr); }, 0, kInLog},
    {"VEMOFlashCacheVersionGet", [] { return 0. + VEMOFlashCacheVersionGet(nullptr); }, -1, kByCode},
    {"VEMOFlashCacheVersionGet", [] { return 0. + VEMOFlashCacheVersionGet("md3"); }, -1, kByCode},
    {"VEMOFlashCacheDestroy", [] { return 0. + VEMOFlashCacheDestroy(nullptr); }, -1, kByCode},
    {"VEMOFlashCacheDestroy", [] { return 0. + VEMOFlashCacheDestroy("md3"); }, -1, kByCode},
    {"VEMOFlashCacheDelete", [] { return 0. + VEMOFlashCacheDelete(nullptr, nullptr, 0); }, -1, kByCode},
    {"VEMOFlashCacheDelete", [] { return 0. + VEMOFlashCacheDelete(kSsd, nullptr, 0); }, -1, kByCode},
    {"VEMOFlashCacheExpand", [] { return 0. + VEMOFlashCacheExpand(nullptr); }, -1, kInLog},
    {"VEMOFlashCacheFlush", [] { return 0. + VEMOFlashCacheFlush(nullptr); }, -1, kByCode},
    {"VEMOFlashCacheFlush", [] { return 0. + VEMOFlashCacheFlush(kSsd); }, -1, kByCode},
    {"VEMOFlashCacheFlushCancel", [] { return 0. + VEMOFlashCacheFlushCancel(nullptr); }, -1, kByCode},
    {"VEMOFlashCacheFlushCancel", [] { return 0. + VEMOFlashCacheFlushCancel(kSsd); }, -1, kByCode},
    {"VEMOFlashCacheIsDebug", [] { return 0. + VEMOFlashCacheIsDebug(1); }, 0, kNothing},
    {"VEMOFlashCacheIsRemoveInFlushState", [] { return 0. + VEMOFlashCacheIsRemoveInFlushState(nullptr, 0); }, 0, kInLog},
    {"VEMOFlashCacheGetFlushProgress", [] { return 0. + VEMOFlashCacheGetFlushProgress(nullptr, "v", 0); }, -1, kInLog},
    {"VEMOFlashCacheGetFlushProgress", [] { return 0. + VEMOFlashCacheGetFlushProgress("m", nullptr, 0); }, -1, kInLog},
    {"VEMOFlashCacheGetFlushProgress", [] { return 0. + VEMOFlashCacheGetFlushProgress("m", "v", 2); }, -1, kInLog},
    {"VEMOFlashCacheDirtyBlockGet", [] { return 0. + VEMOFlashCacheDirtyBlockGet(nullptr, "v"); }, -1, kInLog},
    {"VEMOFlashCacheDirtyBlockGet", [] { return 0. + VEMOFlashCacheDirtyBlockGet("m", nullptr); }, -1, kInLog},
    {"VEMOFlashCacheApmFlushStatusSet", [] { return 0. + VEMOFlashCacheApmFlushStatusSet(nullptr, 1); }, 0, kInLog},
    {"VEMOFlashCacheApmFlushStatusSet", [] { return 0. + VEMOFlashCacheApmFlushStatusSet("k", 2); }, 0, kInLog},
    {"VEMOFlashCacheIsApmFlushDone", [] { return 0. + VEMOFlashCacheIsApmFlushDone(nullptr); }, 0, kInLog},
    {"CreateConfigFilesIfNeeded", [] { return 0. + CreateConfigFilesIfNeeded(nullptr, "/tmp/none", "/tmp"); }, -1, kBoth},
    {"CreateConfigFilesIfNeeded", [] { return 0. + CreateConfigFilesIfNeeded("/etc/passwd", "/tmp/none", nullptr); }, -1, kInLog},
};

const Promise kOthers[] = {
    {"VEMOFlashCacheIsSSDSupport", [] { return 0. + VEMOFlashCacheIsSSDSupport(nullptr); }, 0, kNothing},
    {"VEMOFlashCacheCheckSSDSupport", [] { return 0. + VEMOFlashCacheCheckSSDSupport(nullptr); }, 0, kByCode},
    {"VEMOFlashCacheCheckSSDSupport", [] { return 0. + CheckSsd(nullptr, 1); }, 0, kByCode},
    {"VEMOFlashCacheCheckSSDSupport", [] { return 0. + CheckSsd("model", 0); }, 0, kByCode},
    {"VEMOFlashCacheSupportSSDGet", [] { return 0. + VEMOFlashCacheSupportSSDGet(nullptr); }, -1, kByCode},
    {"VEMOFlashCacheSupportSSDFree", [] { return Quiet([] { VEMOFlashCacheSupportSSDFree(nullptr); }); }, 0, kNothing},
    {"VEMOFlashCacheSupportSSDUpdate", [] { return 0. + VEMOFlashCacheSupportSSDUpdate(); }, -1, kInLog, true},
    {"ModelSupportPin", [] { return 0. + ModelSupportPin(); }, 1, kNothing},
    {"FlashcacheExecuteCommand", [] { return 0. + FlashcacheExecuteCommand(nullptr, "/v"); }, -1, kInLog},
    {"FlashcacheExecuteCommand", [] { return 0. + FlashcacheExecuteCommand("--x", nullptr); }, -1, kInLog},
    {"FlashCachePinAddOrRemoveFiles", [] { return 0. + FlashCachePinAddOrRemoveFiles(nullptr, "/v", 1); }, -1, kInLog},
    {"FlashCachePinAddOrRemoveFiles", [] { return 0. + FlashCachePinAddOrRemoveFiles("f", nullptr, 0); }, -1, kInLog},
    {"FlashCachePinAddOrRemoveFiles", [] { return 0. + FlashCachePinAddOrRemoveFiles(std::string(1024, 'f').c_str(), "/v", 1); }, -1, kInLog},
    {"VEMOFlashCachePinAddFiles", [] { return 0. + VEMOFlashCachePinAddFiles(nullptr, "/v"); }, -1, kInLog},
    {"VEMOFlashCachePinRemoveFiles", [] { return 0. + VEMOFlashCachePinRemoveFiles("f", nullptr); }, -1, kInLog},
    {"VEMOFlashCachePinDeleteVolumeBitmap", [] { return 0. + VEMOFlashCachePinDeleteVolumeBitmap(nullptr); }, -1, kInLog},
    {"VEMOFlashCachePinSendVolumeBitmap", [] { return 0. + VEMOFlashCachePinSendVolumeBitmap(nullptr); }, -1, kInLog},
    {"VEMOFlashCachePinHandleVolumeMount", [] { return 0. + VEMOFlashCachePinHandleVolumeMount(nullptr); }, -1, kInLog},
    {"VEMOFlashCachePinHandleVolumeUmount", [] { return 0. + VEMOFlashCachePinHandleVolumeUmount(nullptr); }, -1, kInLog},
    {"VEMOFlashCachePinGetBitmapSizeByte", [] { return 0. + VEMOFlashCachePinGetBitmapSizeByte(nullptr, &size); }, -1, kInLog},
    {"VEMOFlashCachePinGetBitmapSizeByte", [] { return 0. + VEMOFlashCachePinGetBitmapSizeByte("/v", nullptr); }, -1, kInLog},
    {"VEMOFlashCachePinIsVolumeSupport", [] { return 0. + VEMOFlashCachePinIsVolumeSupport(nullptr); }, 0, kInLog},
    {"VEMOFlashCachePinIsFileAdded", [] { uint32_t added = 0; return 0. + VEMOFlashCachePinIsFileAdded(nullptr, &added); }, -1, kInLog},
    {"VEMOFlashCachePinIsFileAdded", [] { return 0. + VEMOFlashCachePinIsFileAdded("/v/f", nullptr); }, -1, kInLog},
    {"FlashcacheFileStatistics", [] { return 0. + FlashcacheFileStatistics("v", nullptr); }, -1, kByCode},
    {"FlashcacheDoStatistics", [] { return 0. + FlashcacheDoStatistics(nullptr, "/v"); }, -1, kByCode},
    {"FlashcacheDoStatistics", [] { return 0. + FlashcacheDoStatistics("v", nullptr); }, -1, kByCode},
    {"FlashcacheFileStatisticsGetAndParse", [] { return 0. + Parse(nullptr, 7, 9, 9); }, -1, kByCode},
    {"FlashcacheFileStatisticsGetAndParse", [] { return 0. + Parse(days, 6, 9, 9); }, -1, kByCode},
    {"FlashcacheFileStatisticsGetAndParse", [] { return 0. + Parse(days, 7, -1, 9); }, -1, kByCode},
    {"FlashcacheFileStatisticsGetAndParse", [] { return 0. + Parse(days, 7, 9, -1); }, -1, kByCode},
    {"FlashcacheFileStatisticsGetAndParse", [] { return 0. + Parse(days, 7, 9, 9); }, -1, kInLog},
    {"FlashcacheFileStatisticsIsProcessing", [] { return 0. + FlashcacheFileStatisticsIsProcessing(); }, 0, kNothing},
    {"FlashcacheCheckFileStatisticsProgressFile", [] { return 0. + FlashcacheCheckFileStatisticsProgressFile(nullptr, -1); }, 0, kNothing},
    {"FlashcacheFileStatisticsDataIsExist", [] { return 0. + FlashcacheFileStatisticsDataIsExist(); }, 0, kNothing},
};
// clang-format on

class HeaderPromisesTest : public LibraryTest {
  protected:
    template <std::size_t Count>
    void Hold(const Promise (&promises)[Count]) {
        for (const Promise& promise : promises) {
            SCOPED_TRACE(testing::Message()
                         << promise.function << ", line " << &promise - promises << " of its table");
            spy::state() = {};
            // No program starts, whichever is asked for.
            spy::state().answer = [](const spy::ToolRun&) { return spy::Answer{1, "", false}; };
            VLIBCErrSetEx(kCallersCode, "the caller", 1);
            EXPECT_EQ(promise.call(), promise.result);
            const bool byCode = promise.told == kByCode || promise.told == kBoth;
            EXPECT_EQ(VLIBCErrGet(), byCode ? 0x0D00 : kCallersCode);
            EXPECT_EQ(!spy::LoggedTexts().empty(), promise.told == kInLog || promise.told == kBoth);
            EXPECT_EQ(!spy::state().runs.empty(), promise.runsPrograms);
            held_.insert(promise.function);
        }
    }

    std::set<std::string> held_;
};

// The names that the library exports.
std::set<std::string> ExportedNames() {
    Dl_info library{};
    EXPECT_NE(dladdr(dlsym(RTLD_DEFAULT, "VEMOFlashCacheLock"), &library), 0);
    std::FILE* names = popen((std::string("nm -D --defined-only ") + library.dli_fname).c_str(), "re");
    std::set<std::string> exported;
    char name[128];
    char type = 0;
    while (std::fscanf(names, "%*s %c %127[^@\n]%*[^\n]", &type, name) == 2) {
        if (type == 'T') {
            exported.insert(name);
        }
    }
    EXPECT_EQ(pclose(names), 0);
    return exported;
}

TEST_F(HeaderPromisesTest, BadArgumentsEndAsEveryExportedFunctionPromises) {
    Hold(kFrameAndConfig);
    Hold(kKernel);
    Hold(kStatus);
    Hold(kLifecycleAndFlush);
    Hold(kOthers);
    EXPECT_EQ(held_, ExportedNames());
}

TEST_F(HeaderPromisesTest, TwentyEightCharactersAreTheLongestNamesOfACache) {
    for (const std::size_t length : {std::size_t{14}, std::size_t{15}}) {
        spy::state() = {};
        EXPECT_EQ(VEMOFlashCacheCountStatGet(std::string(14, 'm').c_str(), std::string(length, 'v').c_str(),
                                             1, &counters),
                  -1);
        EXPECT_EQ(spy::LoggedTexts().at(0).find("/flashcache_stats from") != std::string::npos, length == 14);
    }
}

}  // namespace
