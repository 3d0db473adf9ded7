#include "config_support.h"
#include "flush/flush.h"

namespace {

using flashcache::FlashCacheFlushStateSet;
using flashcache::FlashCacheFlushStateToStr;
using testing::ElementsAre;
using testing::IsEmpty;

class FlushStateTest : public ConfigTest {
  protected:
    static constexpr const char* kSsd = "/dev/md3";
    static constexpr const char* kNoEntry = "Fail to get config of SSD cache [/dev/md3]";
};

TEST_F(FlushStateTest, RecordsAndTestsEachState) {
    FLASHCACHE_CONFIG entry = Entry("B", "uuid");
    entry.CacheSizeByte = UINT64_MAX;
    ASSERT_EQ(VEMOFlashCacheConfigSet(&entry), 0);
    EXPECT_EQ(VEMOFlashCacheIsRemoveInFlushState(kSsd, FLASHCACHE_FLUSH_STATE_NORMAL), 0);
    const char* const texts[] = {"normal", "flushing", "flush_done"};
    for (unsigned state = 0; state < 3; ++state) {
        EXPECT_EQ(FlashCacheFlushStateSet(kSsd, state), 0);
        entry.FlushState = const_cast<char*>(texts[state]);
        List stored;
        ASSERT_EQ(VEMOFlashCacheConfigGet(nullptr, stored.address()), 1);
        EXPECT_EQ(Describe(*stored.get()), Describe(entry));  // and nothing else changed
        for (unsigned other = 0; other < 3; ++other) {
            EXPECT_EQ(VEMOFlashCacheIsRemoveInFlushState(kSsd, other), other == state ? 1 : 0);
        }
    }
    EXPECT_THAT(spy::LoggedTexts(true), IsEmpty());
}

TEST_F(FlushStateTest, OnlyTheWholeTextCounts) {
    for (const char* text : {"", "Normal", "normal2", "norma"}) {
        WriteWhole(kCopy, std::string("[B]\nSSDDevPath=/dev/md3\nFlushState=") + text + "\n");
        EXPECT_EQ(VEMOFlashCacheIsRemoveInFlushState(kSsd, FLASHCACHE_FLUSH_STATE_NORMAL), 0);
    }
}

TEST_F(FlushStateTest, WithoutAnEntryBothFail) {
    EXPECT_EQ(VEMOFlashCacheIsRemoveInFlushState(kSsd, FLASHCACHE_FLUSH_STATE_NORMAL), 0);
    EXPECT_EQ(FlashCacheFlushStateSet(kSsd, FLASHCACHE_FLUSH_STATE_NORMAL), -1);
    EXPECT_THAT(spy::LoggedTexts(), ElementsAre(kNoEntry, kNoEntry));
    EXPECT_EQ(FlashCacheFlushStateSet(nullptr, FLASHCACHE_FLUSH_STATE_NORMAL), -1);
    EXPECT_EQ(spy::state().log.size(), 2U);
    EXPECT_EQ(VEMOFlashCacheIsRemoveInFlushState(nullptr, FLASHCACHE_FLUSH_STATE_NORMAL), 0);
    EXPECT_FALSE(std::filesystem::exists(kFile));
}

TEST_F(FlushStateTest, OtherValuesAreNoStates) {
    StoreAbc();
    const std::string before = ReadWhole(kFile);
    spy::state() = {};
    EXPECT_EQ(VEMOFlashCacheIsRemoveInFlushState(kSsd, 3), 0);
    EXPECT_EQ(FlashCacheFlushStateSet(kSsd, 3), -1);
    EXPECT_EQ(FlashCacheFlushStateToStr(UINT32_MAX), nullptr);
    EXPECT_THAT(spy::LoggedTexts(), ElementsAre("Wrong cache flush state: 3", "Wrong cache flush state: 3",
                                                "Wrong cache flush state: -1"));
    EXPECT_EQ(ReadWhole(kFile), before);
    EXPECT_THAT(spy::state().runs, IsEmpty());
}

TEST_F(FlushStateTest, AFailedWriteIsTold) {
    StoreAbc();
    spy::state().faults["VLIBCFileSetSection"] = {1, false, 0x0B00};
    EXPECT_EQ(FlashCacheFlushStateSet(kSsd, FLASHCACHE_FLUSH_STATE_FLUSHING), -1);
    EXPECT_EQ(spy::LoggedTexts().back(), "Failed to set flash cache config [/dev/md3]");
    EXPECT_EQ(VEMOFlashCacheIsRemoveInFlushState(kSsd, FLASHCACHE_FLUSH_STATE_FLUSHING), 0);
}

}  // namespace
