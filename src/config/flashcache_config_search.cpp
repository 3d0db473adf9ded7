// Searching configuration entries.

#include "common/guard.h"
#include "common/held_lock.h"
#include "common/log.h"
#include "common/text.h"
#include "config/config.h"

namespace flashcache {
namespace {

using Config = FLASHCACHE_CONFIG;
using Search = FLASHCACHE_CONFIG_SEARCH;

constexpr SearchField kSearchFields[] = {
    {FLASHCACHE_SEARCH_BY_SSD_UUID, &Search::SSDUUID, "SSDUUID", &Config::SSDUUID},
    {FLASHCACHE_SEARCH_BY_SECTION, &Search::SectionName, nullptr, &Config::SectionName},
    {FLASHCACHE_SEARCH_BY_SSD_DEV_PATH, &Search::SSDDevPath, "SSDDevPath", &Config::SSDDevPath},
    {FLASHCACHE_SEARCH_BY_SPACE_PATH, &Search::SpacePath, "SpacePath", &Config::SpacePath},
    {FLASHCACHE_SEARCH_BY_REFERENCE_PATH, &Search::ReferencePath, "ReferencePath", &Config::ReferencePath},
};

FLASHCACHE_CONFIG* FirstMatch(const FLASHCACHE_CONFIG_SEARCH& criteria, FLASHCACHE_CONFIG* list) noexcept {
    const SearchField* field = FindSearchField(criteria.type);
    if (field == nullptr) {
        return nullptr;
    }
    while (list != nullptr && !SameText(criteria.*field->wanted, list->*field->field)) {
        list = list->Next;
    }
    return list;
}

}  // namespace

const SearchField* FindSearchField(FLASHCACHE_SEARCH_TYPE type) noexcept {
    for (const SearchField& field : kSearchFields) {
        if (field.type == type) {
            return &field;
        }
    }
    return nullptr;
}

}  // namespace flashcache

using namespace flashcache;

int VEMOFlashCacheConfSearch(const FLASHCACHE_CONFIG_SEARCH* criteria, FLASHCACHE_CONFIG* list,
                             FLASHCACHE_CONFIG** found) {
    if (criteria == nullptr) {
        SetError(VLIBC_ERR_BAD_PARAMETER);
        return -1;
    }
    const HeldLock lock(kConfigLockFile);
    if (!lock) {
        return -1;
    }
    FLASHCACHE_CONFIG* match = FirstMatch(*criteria, list);
    if (match == nullptr) {
        return 0;
    }
    if (found != nullptr) {
        *found = match;
    }
    return 1;
}
