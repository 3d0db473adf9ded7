// Reading the cache configuration into records.

#include <unistd.h>

#include <cstdlib>
#include <initializer_list>
#include <iterator>

#include "common/guard.h"
#include "common/held_lock.h"
#include "common/log.h"
#include "common/own_file.h"
#include "common/text.h"
#include "config/config.h"

namespace flashcache {
namespace {

// ---- One record from the keys of its section ----

char* TextOf(const VLIBC_SZHASH* keys, const char* key) {
    const char* value = VLIBCSzHashGetValue(keys, key);
    return CopyText(value == nullptr ? "" : value).release();
}

int32_t NumberOf(const VLIBC_SZHASH* keys, const char* key, int32_t absent = 0) noexcept {
    const char* value = VLIBCSzHashGetValue(keys, key);
    return value == nullptr ? absent : static_cast<int32_t>(std::strtol(value, nullptr, 10));
}

uint64_t SizeOf(const VLIBC_SZHASH* keys, const char* key) noexcept {
    const char* value = VLIBCSzHashGetValue(keys, key);
    return value == nullptr ? 0 : std::strtoull(value, nullptr, 10);
}

FLASHCACHE_POLICY PolicyOf(const VLIBC_SZHASH* keys) noexcept {
    FLASHCACHE_POLICY policy{};
    policy.WriteMode = WriteModeFromText(VLIBCSzHashGetValue(keys, "WriteMode"));
    policy.ReclaimPolicy = SameText(VLIBCSzHashGetValue(keys, "ReclaimPolicy"), "fifo")
                               ? FLASHCACHE_RECLAIM_FIFO
                               : FLASHCACHE_RECLAIM_LRU;
    policy.DelaySeconds = NumberOf(keys, "DelaySeconds");
    policy.DirtyThreshPercent = NumberOf(keys, "DirtyThreshPercent");
    policy.SkipSeqIO = NumberOf(keys, "SkipSeqIO") == 1 ? 1 : 0;
    return policy;
}

void FillRecord(FLASHCACHE_CONFIG& record, const char* section, const VLIBC_SZHASH* keys) {
    record.SectionName = CopyText(section).release();
    record.SSDUUID = TextOf(keys, "SSDUUID");
    record.SSDDevPath = TextOf(keys, "SSDDevPath");
    record.SpacePath = TextOf(keys, "SpacePath");
    record.ReferencePath = TextOf(keys, "ReferencePath");
    record.Policy = PolicyOf(keys);
    record.SSDID = TextOf(keys, "SSDID");
    record.DiskLoc = TextOf(keys, "DiskLoc");
    record.CacheMissing = NumberOf(keys, "CacheMissing");
    record.SpaceMissing = NumberOf(keys, "SpaceMissing");
    record.loaded = NumberOf(keys, "loaded");
    record.CacheSizeByte = SizeOf(keys, "CacheSizeByte");
    record.CacheVersion = NumberOf(keys, "CacheVersion", FLASHCACHE_VERSION_UNKNOWN);
    record.CreateCritSection = NumberOf(keys, "CreateCritSection");
    record.ConfigSource = NumberOf(keys, "ConfigSource");
    record.FlushState = TextOf(keys, "FlushState");
}

// ---- The file ----

bool Matches(const FLASHCACHE_CONFIG_SEARCH& criteria, const char* section,
             const VLIBC_SZHASH* keys) noexcept {
    const SearchField* field = FindSearchField(criteria.type);
    if (field == nullptr) {
        return false;
    }
    const char* value = field->key == nullptr ? section : VLIBCSzHashGetValue(keys, field->key);
    return SameText(criteria.*field->wanted, value);
}

// Walks the sections; takes all, or the first that matches `criteria`. `list` may be NULL.
int ReadSections(const FLASHCACHE_CONFIG_SEARCH* criteria, FLASHCACHE_CONFIG** list, const char* path,
                 const VLIBC_SZLIST* names, StringHash& keys) {
    int count = 0;
    FLASHCACHE_CONFIG** tail = list;
    for (int i = 0; const char* section = VLIBCSzListGet(names, i); ++i) {
        VLIBCHashRemoveAll(keys.get());
        if (VLIBCFileGetSection(path, section, keys.address()) < 1) {
            LogPlatformError()("Failed to get section [%s] from %s, ", section, path);
            return -1;
        }
        if (criteria != nullptr && !Matches(*criteria, section, keys.get())) {
            continue;
        }
        ++count;
        if (tail != nullptr) {
            if (FlashCacheConfigParse(section, keys.get(), tail, path) != 0) {
                return -1;
            }
            tail = &(*tail)->Next;
        }
        if (criteria != nullptr) {
            break;
        }
    }
    return count;
}

int ReadFile(const FLASHCACHE_CONFIG_SEARCH* criteria, FLASHCACHE_CONFIG** list, const char* path) {
    StringList names(VLIBCSzListAlloc(kSectionCapacity));
    if (!names) {
        LogPlatformError()("Failed to alloc list for %s, ", path);
        return -1;
    }
    StringHash keys(VLIBCSzHashAlloc(kSectionCapacity));
    if (!keys) {
        LogPlatformError()("Failed to alloc hash for %s, ", path);
        return -1;
    }
    const HeldLock lock(kConfigLockFile);
    if (!lock) {
        return -1;
    }
    if (VLIBCFileEnumSection(path, names.address()) < 0) {
        LogPlatformError()("Failed to enum section of list %s, ", path);
        return -1;
    }
    return ReadSections(criteria, list, path, names.get(), keys);
}

// What every failed read ends with. Returns -1.
int DropList(FLASHCACHE_CONFIG** list) noexcept {
    if (list != nullptr) {
        VEMOFlashCacheConfigFree(*list);
        *list = nullptr;
    }
    return -1;
}

}  // namespace

int FlashCacheConfigParse(const char* section, const VLIBC_SZHASH* keys, FLASHCACHE_CONFIG** record,
                          const char* path) {
    ConfigList built(static_cast<FLASHCACHE_CONFIG*>(std::calloc(1, sizeof(FLASHCACHE_CONFIG))));
    if (!built) {
        LogPlatformError()("Failed to alloc FLASHCACHE_CONFIG from %s, ", path);
        return -1;
    }
    FillRecord(*built.get(), section, keys);
    *record = built.release();
    return 0;
}

int FlashCacheConfigRead(const FLASHCACHE_CONFIG_SEARCH* criteria, FLASHCACHE_CONFIG** list,
                         const char* path) {
    if (access(path, F_OK) != 0) {
        return 0;
    }
    const int result = Guarded(-1, [&] { return ReadFile(criteria, list, path); });
    return result < 0 ? DropList(list) : result;
}

}  // namespace flashcache

using namespace flashcache;

int VEMOFlashCacheConfigGet(const FLASHCACHE_CONFIG_SEARCH* criteria, FLASHCACHE_CONFIG** list) {
    return FlashCacheConfigRead(criteria, list, kConfigFile);
}

int VEMOFlashCacheConfigTmpGet(const FLASHCACHE_CONFIG_SEARCH* criteria, FLASHCACHE_CONFIG** list) {
    // What is read here may be written back to the permanent file.
    if (LookForOurs(kConfigTmpFile) == Found::kForeign) {
        return DropList(list);
    }
    return FlashCacheConfigRead(criteria, list, kConfigTmpFile);
}

void VEMOFlashCacheConfigFree(FLASHCACHE_CONFIG* list) {
    while (list != nullptr) {
        FLASHCACHE_CONFIG* next = list->Next;
        for (char* text : {list->SSDDevPath, list->SSDUUID, list->SectionName, list->SpacePath,
                           list->ReferencePath, list->SSDID, list->DiskLoc, list->FlushState}) {
            std::free(text);
        }
        std::free(list);
        list = next;
    }
}
