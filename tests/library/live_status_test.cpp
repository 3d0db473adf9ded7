#include "library/stat_query.h"
#include "support/appliance.h"

namespace {

using namespace appliance;

using LiveStatusTest = CacheTest;

TEST_F(LiveStatusTest, AWriteBackCache) {
    Begin();
    WriteBlocks(kCache, 8);
    const struct {
        const char *knob, *value;
        int32_t FLASHCACHE_STAT::* field;
        int32_t expected;
    } knobs[] = {{"reclaim_policy", "1", &FLASHCACHE_STAT::ReclaimPolicy, FLASHCACHE_RECLAIM_LRU},
                 {"reclaim_policy", "0", &FLASHCACHE_STAT::ReclaimPolicy, FLASHCACHE_RECLAIM_FIFO},
                 {"reclaim_policy", "2", &FLASHCACHE_STAT::ReclaimPolicy, -1},
                 {"fallow_delay", "1234", &FLASHCACHE_STAT::FallowDelay, 1234},
                 {"dirty_thresh_pct", "41", &FLASHCACHE_STAT::DirtyThreshPct, 41}};
    for (const auto& test : knobs) {
        WriteWhole(std::string("/proc/sys/dev/flashcache_md3+volume_1/") + test.knob, test.value);
        const FLASHCACHE_STAT_SEARCH searches[] = {Search(3, kSsd), Search(4, kSpace), Search(6, kCache)};
        for (const FLASHCACHE_STAT_SEARCH& search : searches) {
            StatList list;
            ASSERT_EQ(Get(&search, list), 1);
            EXPECT_STREQ(list->SSDDevPath, kSsd);
            EXPECT_STREQ(list->SpacePath, kSpace);
            EXPECT_EQ(list->WriteMode, FLASHCACHE_WRITE_BACK);
            EXPECT_EQ(list->CountStat.WriteMissSSD, 8U);
            EXPECT_EQ(list->CachedBlocks, 8U);
            EXPECT_EQ(list.get()->*test.field, test.expected) << test.knob;
        }
    }
    char path[64] = "";
    EXPECT_EQ(VEMOFlashCacheSSDPathGet(kCache, path, 4), 0);
    EXPECT_STREQ(path, "/de");
    EXPECT_THAT(spy::LoggedTexts(true), testing::Contains("Support pin = 0"));
}

TEST_F(LiveStatusTest, AWriteAroundCacheHasNoDirtyTuning) {
    Begin(FLASHCACHE_WRITE_AROUND);
    WriteWhole("/proc/sys/dev/flashcache_md3+volume_1/fallow_delay", "1234");
    StatList list;
    ASSERT_EQ(Get(nullptr, list), 1);
    EXPECT_EQ(list->WriteMode, FLASHCACHE_WRITE_AROUND);
    EXPECT_EQ(list->ReclaimPolicy, FLASHCACHE_RECLAIM_LRU);
    EXPECT_EQ(list->FallowDelay, 0);
    EXPECT_EQ(list->DirtyThreshPct, 0);
}

TEST_F(LiveStatusTest, AToolGoneWildIsAFailureInTheEnd) {
    Begin();
    for (const char* fault : {"fail", "crash", "rubbish", "flood:8000"}) {
        SetFault("tool.dmsetup", fault);
        StatList list;
        const FLASHCACHE_STAT_SEARCH search = Search(6, kCache);
        EXPECT_EQ(Get(&search, list), -1) << fault;
        const FLASHCACHE_STAT_SEARCH bySsd = Search(3, kSsd);
        EXPECT_EQ(Get(&bySsd, list), -1) << fault;
    }
}

}  // namespace
