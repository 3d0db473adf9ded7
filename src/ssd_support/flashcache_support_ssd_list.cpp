// The SSD compatibility database as a list.

#include <cstdlib>
#include <initializer_list>

#include "common/guard.h"
#include "ssd_support/ssd_support.h"

namespace flashcache {
namespace {

using SupportList = Handle<FLASHCACHE_SUPPORT_SSD_LIST, VEMOFlashCacheSupportSSDFree>;

template <class Record>
Record* NewRecord() {
    void* record = std::calloc(1, sizeof(Record));
    if (record == nullptr) {
        throw std::bad_alloc();
    }
    return static_cast<Record*>(record);
}

// Stores a trimmed copy of `text` in a field, NULL where there is none. False when the trimming failed.
bool StoreTrimmed(const char* text, char*& field) {
    if (text == nullptr) {
        return true;
    }
    field = TrimmedCopy(text).release();
    return field != nullptr;
}

// One entry from a section's keys; empty on failure.
SupportList MakeEntry(const char* section, const StringHash& keys) {
    SupportList node(NewRecord<FLASHCACHE_SUPPORT_SSD_LIST>());
    node->SSD = NewRecord<FLASHCACHE_SUPPORT_SSD>();
    FLASHCACHE_SUPPORT_SSD& ssd = *node->SSD;
    const auto value = [&](const char* key) { return VLIBCSzHashGetValue(keys.get(), key); };
    const bool stored = StoreTrimmed(section, ssd.Name) && StoreTrimmed(value("brand"), ssd.Brand) &&
                        StoreTrimmed(value("size"), ssd.Size) && StoreTrimmed(value("since"), ssd.Since) &&
                        StoreTrimmed(value("support_models"), ssd.SupportModels);
    return stored ? std::move(node) : SupportList();
}

int ReadDatabase(SupportList& list) {
    StringList names(VLIBCSzListAlloc(kCapacity));
    StringHash keys(VLIBCSzHashAlloc(kCapacity));
    if (!names || !keys || VLIBCFileEnumSection(kDatabase, names.address()) < 0) {
        return -1;
    }
    int count = 0;
    FLASHCACHE_SUPPORT_SSD_LIST** tail = list.address();
    while (const char* section = VLIBCSzListGet(names.get(), count)) {
        VLIBCHashRemoveAll(keys.get());
        if (VLIBCFileGetSection(kDatabase, section, keys.address()) < 0) {
            return -1;
        }
        // NOLINTNEXTLINE(clang-analyzer-unix.Malloc): its owner is moved into the list or releases it.
        SupportList entry = MakeEntry(section, keys);
        if (!entry) {
            return -1;
        }
        *tail = entry.release();
        tail = &(*tail)->Next;
        ++count;
    }
    return count;
}

}  // namespace
}  // namespace flashcache

using namespace flashcache;

int VEMOFlashCacheSupportSSDGet(FLASHCACHE_SUPPORT_SSD_LIST** list) {
    if (list == nullptr) {
        SetError(VLIBC_ERR_BAD_PARAMETER);
        return -1;
    }
    if (VLIBCFileExist(kDatabase) == 0) {
        return 0;
    }
    SupportList entries;
    const int count = Guarded(-1, [&] { return ReadDatabase(entries); });
    if (count < 0) {
        *list = nullptr;
    } else if (count > 0) {
        *list = entries.release();
    }
    return count;
}

void VEMOFlashCacheSupportSSDFree(FLASHCACHE_SUPPORT_SSD_LIST* list) {
    while (list != nullptr) {
        FLASHCACHE_SUPPORT_SSD_LIST* next = list->Next;
        if (list->SSD != nullptr) {
            const FLASHCACHE_SUPPORT_SSD& ssd = *list->SSD;
            for (char* text : {ssd.Name, ssd.Brand, ssd.Size, ssd.Since, ssd.SupportModels}) {
                std::free(text);
            }
        }
        std::free(list->SSD);
        std::free(list);
        list = next;
    }
}
