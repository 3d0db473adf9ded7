#include "config_support.h"

namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;
using testing::StartsWith;

class ConfigReadTest : public ConfigTest {
  protected:
    // Reads the one entry of a file with this text.
    static std::string Parsed(const std::string& keys) {
        WriteWhole(kFile, "[S]\n" + keys);
        List list;
        EXPECT_EQ(VEMOFlashCacheConfigGet(nullptr, list.address()), 1) << keys;
        return list ? Describe(*list.get()) : "";
    }
};

TEST_F(ConfigReadTest, WithoutAFileThereIsNothing) {
    FLASHCACHE_CONFIG untouched{};
    FLASHCACHE_CONFIG* list = &untouched;
    EXPECT_EQ(VEMOFlashCacheConfigGet(nullptr, &list), 0);
    EXPECT_EQ(VEMOFlashCacheConfigTmpGet(nullptr, &list), 0);
    EXPECT_EQ(list, &untouched);
    EXPECT_FALSE(std::filesystem::exists(kLock));
    EXPECT_THAT(spy::LoggedTexts(true), IsEmpty());
    VEMOFlashCacheConfigFree(nullptr);
}

TEST_F(ConfigReadTest, AbsentAndOddValues) {
    const struct {
        const char* keys;
        const char* record;
    } cases[] = {
        {"\tx = y\n", "||S||||||0|0|0|0|0|0|0|0|-1|0|0|0"},
        {"WriteMode=Back\nReclaimPolicy=FIFO\nSkipSeqIO=2\nCacheVersion=\n",
         "||S||||||0|0|0|0|0|0|0|0|0|0|0|0"},
        {"WriteMode=back_crash\nReclaimPolicy=fifo\nSkipSeqIO=1\nSSDUUID = a = b # c\n",
         "a = b # c||S||||||5|1|0|0|1|0|0|0|-1|0|0|0"},
        {"DelaySeconds=4294967297\nDirtyThreshPercent=-7x\nCacheMissing=0x10\nSpaceMissing=+5\n"
         "loaded=2147483648\nCacheVersion=99999999999999999999\nCreateCritSection=-\nConfigSource= 08\n",
         "||S||||||0|0|1|-7|0|0|5|-2147483648|-1|0|8|0"},
        {"CacheSizeByte=18446744073709551616\n", "||S||||||0|0|0|0|0|0|0|0|-1|0|0|18446744073709551615"},
        {"FlushState=flushing\nFlushState=normal\n", "||S|||||flushing|0|0|0|0|0|0|0|0|-1|0|0|0"},
    };
    for (const auto& test : cases) {
        EXPECT_EQ(Parsed(test.keys), test.record) << test.keys;
    }
}

TEST_F(ConfigReadTest, EveryModeHasItsText) {
    const char* const texts[] = {"thru", "back", "around", "x", "back_bypass", "back_crash"};
    for (int mode = 0; mode < 6; ++mode) {
        Parsed(std::string("WriteMode=") + texts[mode] + "\n");
        List list;
        EXPECT_EQ(VEMOFlashCacheConfigGet(nullptr, list.address()), 1);
        EXPECT_EQ(list->Policy.WriteMode, mode == 3 ? 0 : mode);
    }
}

TEST_F(ConfigReadTest, ReadsAllInFileOrder) {
    for (const char* path : {kFile, kCopy}) {
        WriteWhole(path, "[C]\nSSDUUID=1\n[A]\nSSDUUID=2\n[B]\nSSDUUID=3\n");
    }
    EXPECT_THAT(Stored(), ElementsAre("C", "A", "B"));
    EXPECT_THAT(Stored(VEMOFlashCacheConfigTmpGet), ElementsAre("C", "A", "B"));
    EXPECT_EQ(VEMOFlashCacheConfigGet(nullptr, nullptr), 3);
    WriteWhole(kFile, "# nothing\n");
    EXPECT_THAT(Stored(), IsEmpty());
}

TEST_F(ConfigReadTest, SearchesFileAndListAlike) {
    WriteWhole(kFile,
               "[A]\nSSDUUID=u1\nSSDDevPath=/dev/md3\nSpacePath=/dev/vg1/v1\nReferencePath=/volume1\n"
               "[B]\nSSDUUID=u2\nSSDDevPath=/dev/md3\nSpacePath=/dev/vg1/v2\nReferencePath=/volume2\n"
               "[C]\nSSDID=none of the keys\n");
    List all;
    ASSERT_EQ(VEMOFlashCacheConfigGet(nullptr, all.address()), 3);
    const struct {
        FLASHCACHE_SEARCH_TYPE type;
        const char* text;
        const char* section;
    } cases[] = {{1, "u2", "B"},       {1, "u", nullptr},       {2, "C", "C"},        {2, "c", nullptr},
                 {3, "/dev/md3", "A"}, {4, "/dev/vg1/v2", "B"}, {5, "/volume2", "B"}, {5, nullptr, nullptr},
                 {6, "A", nullptr},    {0, "A", nullptr}};
    for (const auto& test : cases) {
        const FLASHCACHE_CONFIG_SEARCH search = Search(test.type, test.text);
        const int expected = test.section == nullptr ? 0 : 1;
        List one;
        FLASHCACHE_CONFIG* found = nullptr;
        EXPECT_EQ(VEMOFlashCacheConfigGet(&search, one.address()), expected);
        EXPECT_EQ(VEMOFlashCacheConfigGet(&search, nullptr), expected);
        EXPECT_EQ(VEMOFlashCacheConfSearch(&search, all.get(), &found), expected);
        EXPECT_EQ(VEMOFlashCacheConfSearch(&search, all.get(), nullptr), expected);
        EXPECT_STREQ(one ? one->SectionName : nullptr, test.section);
        EXPECT_STREQ(found != nullptr ? found->SectionName : nullptr, test.section);
        EXPECT_TRUE(!one || one->Next == nullptr);
    }
    EXPECT_THAT(spy::LoggedTexts(), IsEmpty());
}

TEST_F(ConfigReadTest, AnAbsentKeyIsNoEmptyText) {
    WriteWhole(kFile, "[A]\nSSDID=1\n[B]\nSSDUUID=\n");
    const FLASHCACHE_CONFIG_SEARCH search = Search(FLASHCACHE_SEARCH_BY_SSD_UUID, "");
    List one;
    ASSERT_EQ(VEMOFlashCacheConfigGet(&search, one.address()), 1);
    EXPECT_STREQ(one->SectionName, "B");
}

TEST_F(ConfigReadTest, SearchingNeedsCriteriaAndTheLock) {
    EXPECT_EQ(VEMOFlashCacheConfSearch(nullptr, nullptr, nullptr), -1);
    EXPECT_EQ(VLIBCErrGet(), 0x0D00);
    EXPECT_FALSE(std::filesystem::exists(kLock));
    const FLASHCACHE_CONFIG_SEARCH search = Search(FLASHCACHE_SEARCH_BY_SECTION, "A");
    EXPECT_EQ(VEMOFlashCacheConfSearch(&search, nullptr, nullptr), 0);
    EXPECT_TRUE(std::filesystem::exists(kLock));
    EXPECT_THAT(spy::LoggedTexts(true), IsEmpty());
}

TEST_F(ConfigReadTest, OneSectionWithoutKeysFailsTheRead) {
    WriteWhole(kFile, "[A]\nSSDUUID=1\n[B]\n# no key\n[C]\nSSDUUID=3\n");
    EXPECT_THAT(Stored(), ElementsAre("failed"));
    EXPECT_EQ(VEMOFlashCacheConfigGet(nullptr, nullptr), -1);
    const FLASHCACHE_CONFIG_SEARCH before = Search(FLASHCACHE_SEARCH_BY_SECTION, "A");
    const FLASHCACHE_CONFIG_SEARCH behind = Search(FLASHCACHE_SEARCH_BY_SECTION, "C");
    EXPECT_EQ(VEMOFlashCacheConfigGet(&before, nullptr), 1);
    EXPECT_EQ(VEMOFlashCacheConfigGet(&behind, nullptr), -1);
    EXPECT_THAT(spy::LoggedTexts(),
                Each(AllOf(StartsWith("Failed to get section [B] from /usr/vemo/etc/flashcache.conf, [0x"),
                           EndsWith("]"))));
    EXPECT_EQ(spy::state().log.size(), 3U);
}

TEST_F(ConfigReadTest, EachFailureHasItsMessage) {
    StoreAbc();
    const struct {
        const char* function;
        int call;
        const char* logged;
    } cases[] = {
        {"VLIBCSzListAlloc", 1, "Failed to alloc list for /tmp/flashcache.conf, [0x0123 spy:1]"},
        {"VLIBCSzHashAlloc", 1, "Failed to alloc hash for /tmp/flashcache.conf, [0x0123 spy:1]"},
        {"VLIBCFileEnumSection", 1, "Failed to enum section of list /tmp/flashcache.conf, [0x0123 spy:1]"},
        {"VLIBCFileGetSection", 3, "Failed to get section [C] from /tmp/flashcache.conf, [0x0123 spy:1]"},
    };
    for (const auto& test : cases) {
        spy::state() = {};
        spy::state().faults[test.function] = {test.call, false, 0x0123};
        List list;
        EXPECT_EQ(VEMOFlashCacheConfigTmpGet(nullptr, list.address()), -1);
        EXPECT_FALSE(list);
        EXPECT_THAT(spy::LoggedTexts(), ElementsAre(test.logged));
        EXPECT_THAT(Stored(VEMOFlashCacheConfigTmpGet), ElementsAre("A", "B", "C"));
    }
}

TEST_F(ConfigReadTest, HostileFilesFailOrReadAndAreKept) {
    std::string binary = "[bin]\nSSDUUID=";
    for (int byte = 0; byte < 256; ++byte) {
        binary += static_cast<char>(byte);
    }
    const std::string million(1U << 20U, 'x');
    const std::vector<std::string> texts = {
        binary + "\n",
        "[long]\nSSDID=" + million + "\n" + million + "\n" + million + "=1\n",
        "[" + million + "]\nSSDID=1\n",
        "[twice]\nSSDID=1\n[twice]\nSSDID=2\n",
        "[open\nSSDID=1\n[]\nSSDID=2\n]\n=\n[[x]]\n = y\n",
        "\xEF\xBB\xBF[bom]\r\nSSDID=1\r\n",
        std::string("\0\0\0[nul]\nSSDID=\0\n", 17),
        "%s%n[%d]\n%s=%n%s\nSSDUUID=%s\n",
        "SSDID=1",
    };
    for (const std::string& text : texts) {
        WriteWhole(kFile, text);
        List list;
        const int count = VEMOFlashCacheConfigGet(nullptr, list.address());
        EXPECT_EQ(Names(list.get()).size(), static_cast<std::size_t>(count < 0 ? 0 : count));
        const FLASHCACHE_CONFIG entry = Entry("new");
        ASSERT_EQ(VEMOFlashCacheConfigSet(&entry), 0);
        EXPECT_TRUE(ReadWhole(kFile).starts_with(text));
        const FLASHCACHE_CONFIG_SEARCH search = Search(FLASHCACHE_SEARCH_BY_SECTION, "new");
        if (count >= 0) {
            EXPECT_EQ(VEMOFlashCacheConfigDelete(&search), 0);
            EXPECT_THAT(ReadWhole(kFile), testing::AnyOf(text, text + "\n"));
        }
    }
}

TEST_F(ConfigReadTest, LongTextsComeWhole) {
    const std::string million(1U << 20U, 'x');
    Parsed("SSDID=" + million + "\n");
    List list;
    ASSERT_EQ(VEMOFlashCacheConfigGet(nullptr, list.address()), 1);
    EXPECT_EQ(list->SSDID, million);
}

TEST_F(ConfigReadTest, APathThatIsNoFileFails) {
    std::filesystem::create_directory(kFile);
    EXPECT_THAT(Stored(), ElementsAre("failed"));
    EXPECT_THAT(spy::LoggedTexts(),
                ElementsAre(StartsWith("Failed to enum section of list /usr/vemo/etc/flashcache.conf, [0x")));
}

}  // namespace
