#include "support/appliance.h"

namespace {

using namespace appliance;
using testing::ElementsAre;
using testing::IsEmpty;

class ProgressTest : public CacheTest {
  protected:
    void SetUp() override {
        CacheTest::SetUp();
        Begin();
    }
    static std::string Counts(const std::string& initial, const std::string& remaining) {
        return "initial_num_of_dirty=" + initial + " remaining_num_of_dirty=" + remaining + "\n";
    }
};

TEST_F(ProgressTest, Percentages) {
    const struct {
        const char *initial, *remaining;
        float percent;
        int dirty;
    } cases[] = {{"200", "50", 75.0F, 50},
                 {"200", "0", 100.0F, 0},
                 {"0", "7", 100.0F, 7},
                 {"-1", "7", 0.0F, 7},
                 {"100", "150", -50.0F, 150},
                 {"3", "1", 100.0F * (2.0F / 3.0F), 1},
                 {"33554433", "1", 100.0F, 1},  // beyond what a float tells apart
                 {"2147483647", "-2147483648", 100.0F * (-1.0F / 2147483648.0F), -2147483647 - 1}};
    for (const auto& test : cases) {
        SetFault("file.flashcache_progress", Counts(test.initial, test.remaining));
        EXPECT_EQ(VEMOFlashCacheGetFlushProgress("md3", "volume_1", 0), test.percent) << test.initial;
        EXPECT_EQ(VEMOFlashCacheDirtyBlockGet("md3", "volume_1"), test.dirty) << test.initial;
    }
    SetFault("file.flashcache_progress", "initial_num_of_dirty=8\n\n \t remaining_num_of_dirty=2");
    EXPECT_EQ(VEMOFlashCacheGetFlushProgress("md3", "volume_1", 0), 75.0F);
    EXPECT_THAT(spy::LoggedTexts(), IsEmpty());
}

TEST_F(ProgressTest, WhatDoesNotParseIsNoProgress) {
    const std::string texts[] = {"",
                                 "initial_num_of_dirty=8\n",
                                 " initial_num_of_dirty=8 remaining_num_of_dirty=2\n",
                                 "\xff\xfe\x01",
                                 std::string(60000, '9'),
                                 Counts("", "2"),
                                 Counts("4294967296", "50"),  // 0 when cut to 32 bits: all done
                                 Counts("50", "4294967296"),
                                 Counts("50", "-4294967296"),
                                 Counts("99999999999999999999999999", "99999999999999999999999999")};
    for (const std::string& text : texts) {
        SetFault("file.flashcache_progress", text);
        spy::state().log.clear();
        EXPECT_EQ(VEMOFlashCacheGetFlushProgress("md3", "volume_1", 0), -1.0F) << text;
        EXPECT_EQ(VEMOFlashCacheDirtyBlockGet("md3", "volume_1"), -1) << text;
        EXPECT_THAT(spy::LoggedTexts(),
                    ElementsAre("Parse flush progress fail", "Can't get flush information",
                                "Parse flush progress fail", "Can't get flush information"));
    }
}

TEST_F(ProgressTest, TheSelectorAndTheRecordedStateMustFit) {
    SetFault("file.flashcache_progress", Counts("200", "50"));
    const struct {
        const char* state;
        float removal, other;
    } cases[] = {
        {"", 75.0F, 0.0F}, {"normal", 0.0F, 75.0F}, {"flushing", 75.0F, 0.0F}, {"flush_done", 75.0F, 0.0F}};
    const std::string copy = ReadWhole(kConfigCopy);
    for (const auto& test : cases) {
        WriteWhole(kConfigCopy, copy);
        Replace(kConfigCopy, "\tFlushState = \n", std::string("\tFlushState = ") + test.state + "\n");
        EXPECT_EQ(VEMOFlashCacheGetFlushProgress("md3", "volume_1", 0), test.removal) << test.state;
        EXPECT_EQ(VEMOFlashCacheGetFlushProgress("md3", "volume_1", 1), test.other) << test.state;
    }
    EXPECT_THAT(spy::LoggedTexts(), IsEmpty());
    EXPECT_EQ(VEMOFlashCacheGetFlushProgress("md3", "volume_1", 2), -1.0F);
    EXPECT_EQ(VEMOFlashCacheGetFlushProgress(nullptr, "volume_1", 2), -1.0F);
    EXPECT_EQ(VEMOFlashCacheGetFlushProgress("md3", nullptr, 0), -1.0F);
    EXPECT_EQ(VEMOFlashCacheDirtyBlockGet("md3", nullptr), -1);
    EXPECT_EQ(VEMOFlashCacheDirtyBlockGet("md3", "volume_9"), -1);
    EXPECT_EQ(VEMOFlashCacheGetFlushProgress("md8", "volume_1", 0), -1.0F);
    EXPECT_EQ(VEMOFlashCacheGetFlushProgress("md8", "volume_1", 1), 0.0F);
    EXPECT_THAT(spy::LoggedTexts(),
                ElementsAre("Incorrect progressState Parameter", "Incorrect Parameter", "Incorrect Parameter",
                            "Incorrect Parameter", "Can't get flush information",
                            "Fail to get config of SSD cache [/dev/md8]", "Can't get flush information",
                            "Fail to get config of SSD cache [/dev/md8]"));
}

}  // namespace
