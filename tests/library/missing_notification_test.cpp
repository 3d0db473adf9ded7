#include "support/library_test.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class MissingNotificationTest : public LibraryTest {
  protected:
    // Announces a missing write-back cache with this mount path.
    static int Announce(const std::string& path) {
        std::string text = path;
        FLASHCACHE_CONFIG entry{};
        entry.ReferencePath = text.data();
        entry.CacheMissing = 1;
        entry.Policy.WriteMode = FLASHCACHE_WRITE_BACK;
        return VEMOFlashCacheCheckSendMissingNotification(&entry);
    }
};

TEST_F(MissingNotificationTest, NamesTheVolumeInBothPlaces) {
    const std::string longPath = "/" + std::string(2000, 'v');
    const std::pair<std::string, std::string> cases[] = {{"/volume3", "Volume 3"},
                                                         {"/volume12/extra", "Volume 12"},
                                                         {"/volumeUSB1", "/volumeUSB1"},
                                                         {"", ""},
                                                         {longPath, longPath.substr(0, 1023)}};
    for (const auto& [path, text] : cases) {
        spy::state() = {};
        EXPECT_EQ(Announce(path), 0);
        const std::vector<std::string> told = spy::LoggedTexts(true);  // of the platform's stand-ins
        ASSERT_EQ(told.size(), 2U);
        EXPECT_THAT(told[0], testing::AllOf(HasSubstr("116000"), HasSubstr(text)));
        EXPECT_EQ(told[1], "notification SSDCacheMissing [%SPACE_ID%=" + text + "]");
    }
}

TEST_F(MissingNotificationTest, OnlyForMissingWriteBackCaches) {
    for (const int mode : {0, 1, 2, 4, 5}) {
        FLASHCACHE_CONFIG entry{};
        entry.CacheMissing = mode == FLASHCACHE_WRITE_BACK ? 0 : 1;
        entry.Policy.WriteMode = mode;
        EXPECT_EQ(VEMOFlashCacheCheckSendMissingNotification(&entry), 0);
    }
    EXPECT_THAT(spy::LoggedTexts(true), IsEmpty());
    EXPECT_EQ(VEMOFlashCacheCheckSendMissingNotification(nullptr), -1);
    EXPECT_THAT(spy::LoggedTexts(true), ElementsAre("Invalid input parameter"));
    EXPECT_EQ(VLIBCErrGet(), 0);
}

TEST_F(MissingNotificationTest, Failures) {
    const struct {
        const char* function;
        int result;
        std::vector<std::string> logged;
        std::size_t told;  // lines in all
    } cases[] = {
        {"VLIBCSzHashAlloc", -1, {"Fail to allocate hash. [0x0100 spy:1]"}, 1},
        {"VLIBCSzHashSetValue", 0, {"Failed to set hash value SPACE_ID Volume 1"}, 3},
        {"VEMOSysNotifySendNotifiction", -1, {"Failed to send notification SSDCacheMissing"}, 2},
    };
    for (const auto& test : cases) {
        spy::state() = {};
        spy::state().faults[test.function] = {1, false, 0x0100};
        EXPECT_EQ(Announce("/volume1"), test.result);
        EXPECT_EQ(spy::LoggedTexts(), test.logged);
        EXPECT_EQ(spy::state().log.size(), test.told);
    }
}

}  // namespace
