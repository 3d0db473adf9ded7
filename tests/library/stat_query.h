// Status queries for tests.
#pragma once

#include <gtest/gtest.h>

#include <memory>

#include "vemoflashcache.h"

struct FreeStat {
    void operator()(FLASHCACHE_STAT* list) const { VEMOFlashCacheStatFree(&list); }
};
using StatList = std::unique_ptr<FLASHCACHE_STAT, FreeStat>;

inline FLASHCACHE_STAT_SEARCH Search(int type, const char* path) {
    FLASHCACHE_STAT_SEARCH search{};
    search.type = type;
    (type == FLASHCACHE_SEARCH_BY_SSD_DEV_PATH ? search.SSDDevPath
     : type == FLASHCACHE_SEARCH_BY_SPACE_PATH ? search.SpacePath
                                               : search.CacheDevPath) = path;
    return search;
}

// The result of a query, and its list; the out value must be written on success and only then.
inline int Get(const FLASHCACHE_STAT_SEARCH* search, StatList& list) {
    static FLASHCACHE_STAT unset{};
    FLASHCACHE_STAT* found = &unset;
    const int count = VEMOFlashCacheStatGet(search, &found);
    EXPECT_EQ(found == &unset, count < 0);
    list.reset(found == &unset ? nullptr : found);
    return count;
}
