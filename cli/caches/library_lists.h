// Owners of the lists that the library hands out.
#pragma once

#include <memory>

#include "vemoflashcache.h"

namespace cli {

struct ConfigListFree {
    void operator()(FLASHCACHE_CONFIG* list) const { VEMOFlashCacheConfigFree(list); }
};
using ConfigList = std::unique_ptr<FLASHCACHE_CONFIG, ConfigListFree>;

struct StatListFree {
    void operator()(FLASHCACHE_STAT* list) const { VEMOFlashCacheStatFree(&list); }
};
using StatList = std::unique_ptr<FLASHCACHE_STAT, StatListFree>;

}  // namespace cli
