#include <climits>

#include "config_support.h"

namespace {

using spy::ToolRun;
using testing::ElementsAre;
using testing::IsEmpty;

class ConfigWriteTest : public ConfigTest {
  protected:
    const ToolRun copy_{"/bin/cp", "", {"-f", kFile, kStaging}};
    const ToolRun move_{"/bin/mv", "", {"-f", kStaging, kCopy}};

    // Lets the run of this program fail.
    static void FailProgram(const char* program) {
        spy::state().answer = [program](const ToolRun& run) {
            return run.program == program ? std::optional<spy::Answer>({1, ""}) : std::nullopt;
        };
    }
};

TEST_F(ConfigWriteTest, WritesNineteenKeysAndRefreshesTheCopy) {
    FLASHCACHE_CONFIG entry = Entry("cache 1");
    entry.Policy = {FLASHCACHE_WRITE_BACK_BYPASS, FLASHCACHE_RECLAIM_FIFO, 900, 40, 5};
    entry.DiskLoc = nullptr;
    FLASHCACHE_CONFIG second = Entry("not followed");
    entry.Next = &second;
    ASSERT_EQ(VEMOFlashCacheConfigSet(&entry), 0);
    EXPECT_EQ(ReadWhole(kFile),
              "[cache 1]\n\tSSDUUID = uuid\n\tReferencePath = /volume1\n\tSSDDevPath = /dev/md3\n"
              "\tSpacePath = /dev/vg1/volume_1\n\tDirtyThreshPercent = 40\n\tDelaySeconds = 900\n"
              "\tSSDID = \n\tDiskLoc = \n\tCacheMissing = 0\n\tSpaceMissing = 0\n\tloaded = 0\n"
              "\tSkipSeqIO = 0\n\tCacheSizeByte = 0\n\tCacheVersion = 0\n\tCreateCritSection = 0\n"
              "\tConfigSource = 0\n\tReclaimPolicy = fifo\n\tWriteMode = back_bypass\n\tFlushState = \n");
    EXPECT_EQ(ReadWhole(kCopy), ReadWhole(kFile));
    EXPECT_FALSE(std::filesystem::exists(kStaging));
    EXPECT_THAT(spy::state().runs, ElementsAre(copy_, move_));
    EXPECT_THAT(spy::LoggedTexts(true), IsEmpty());
}

TEST_F(ConfigWriteTest, ExtremeValuesComeBack) {
    StoreAbc();
    const std::string a = SectionText("A");
    std::string text(5000, '%');
    FLASHCACHE_CONFIG entry = Entry("B", "= [x] ; # \"y\" %s %n \xC3\xA4\xFF");
    entry.SSDDevPath = entry.SpacePath = entry.ReferencePath = entry.SSDID = text.data();
    entry.DiskLoc = entry.FlushState = const_cast<char*>("a\tb");
    for (const int32_t number : {INT32_MIN, INT32_MAX, -1}) {
        entry.Policy = {FLASHCACHE_WRITE_BACK_CRASH, FLASHCACHE_RECLAIM_FIFO, number, number, 1};
        entry.CacheMissing = entry.SpaceMissing = entry.loaded = number;
        entry.CacheVersion = entry.CreateCritSection = entry.ConfigSource = number;
        entry.CacheSizeByte = UINT64_MAX;
        ASSERT_EQ(VEMOFlashCacheConfigSet(&entry), 0);
        const FLASHCACHE_CONFIG_SEARCH search = Search(FLASHCACHE_SEARCH_BY_SECTION, "B");
        List list;
        ASSERT_EQ(VEMOFlashCacheConfigTmpGet(&search, list.address()), 1);
        EXPECT_EQ(Describe(*list.get()), Describe(entry));
    }
    EXPECT_NE(ReadWhole(kFile).find("\tCacheSizeByte = 18446744073709551615\n"), std::string::npos);
    EXPECT_EQ(SectionText("A"), a);
    EXPECT_THAT(Stored(), ElementsAre("A", "B", "C"));
}

TEST_F(ConfigWriteTest, WhatCannotBeWrittenChangesNothing) {
    StoreAbc();
    const std::string before = ReadWhole(kFile);
    const struct {
        const char* section;
        const char* uuid;
        FLASHCACHE_POLICY policy;
        int error;
        std::vector<std::string> logged;
    } cases[] = {
        {nullptr, "u", {}, 0x0D00, {}},
        {"B", nullptr, {}, 0x0D00, {}},
        {"B", "u", {1, 2, 0, 0, 0}, 0, {"bad policy: 2"}},
        {"B", "u", {3, -1, 0, 0, 0}, 0, {"bad policy: -1"}},
        {"B", "u", {3, 0, 0, 0, 0}, 0, {"bad write type: 3"}},
        {"B", "u", {6, 1, 0, 0, 0}, 0, {"bad write type: 6"}},
        {"B", "u", {-1, 1, 0, 0, 0}, 0, {"bad write type: -1"}},
    };
    std::filesystem::remove(kLock);
    for (const auto& test : cases) {
        VLIBCErrSetEx(0, "", 0);
        spy::state() = {};
        FLASHCACHE_CONFIG entry = Entry(test.section, test.uuid);
        entry.Policy = test.policy;
        EXPECT_EQ(VEMOFlashCacheConfigSet(&entry), -1);
        EXPECT_EQ(VLIBCErrGet(), test.error);
        EXPECT_EQ(spy::LoggedTexts(true), test.logged);
        EXPECT_THAT(spy::state().runs, IsEmpty());
    }
    EXPECT_EQ(VEMOFlashCacheConfigSet(nullptr), -1);
    EXPECT_EQ(ReadWhole(kFile), before);
    EXPECT_FALSE(std::filesystem::exists(kLock));
}

TEST_F(ConfigWriteTest, TextsThatAreNoLineAreRefused) {
    StoreAbc();
    const std::string before = ReadWhole(kFile);
    for (const char* text : {"a\nWriteMode = back", "a\r", " a", "a "}) {
        FLASHCACHE_CONFIG entry = Entry("B");
        entry.DiskLoc = const_cast<char*>(text);
        EXPECT_EQ(VEMOFlashCacheConfigSet(&entry), -1);
    }
    for (const char* section : {"a]\n[b", "a\nb", "a]b"}) {
        const FLASHCACHE_CONFIG entry = Entry(section);
        EXPECT_EQ(VEMOFlashCacheConfigSet(&entry), -1);
    }
    EXPECT_EQ(ReadWhole(kFile), before);
    EXPECT_THAT(spy::LoggedTexts(),
                testing::Each(testing::StartsWith(
                    "Failed to set key [uuid] into /usr/vemo/etc/flashcache.conf, [0x0D00 ")));
}

TEST_F(ConfigWriteTest, AddsOnlyWhatIsNotThere) {
    const struct {
        int error;
        bool adds;
        std::vector<std::string> logged;
    } cases[] = {
        {0x0900, true, {}},
        {0x2000, true, {}},
        {0x0B00, false, {"Failed to set key [uuid] into /usr/vemo/etc/flashcache.conf, [0x0B00 spy:1]"}},
        {0x0D00, false, {"Failed to set key [uuid] into /usr/vemo/etc/flashcache.conf, [0x0D00 spy:1]"}},
    };
    const FLASHCACHE_CONFIG entry = Entry("B");
    for (const auto& test : cases) {
        std::filesystem::remove(kFile);
        spy::state() = {};
        spy::state().faults["VLIBCFileSetSection"] = {1, true, test.error};
        EXPECT_EQ(VEMOFlashCacheConfigSet(&entry), test.adds ? 0 : -1);
        EXPECT_EQ(std::filesystem::exists(kFile), test.adds);
        EXPECT_EQ(spy::LoggedTexts(), test.logged);
    }
    spy::state() = {};
    spy::state().faults = {{"VLIBCFileSetSection", {1, false, 0x2000}},
                           {"VLIBCFileAddSection", {1, false, 0x0B00}}};
    EXPECT_EQ(VEMOFlashCacheConfigSet(&entry), -1);
    EXPECT_THAT(spy::LoggedTexts(),
                ElementsAre("Failed to add key[uuid] into /usr/vemo/etc/flashcache.conf, [0x0B00 spy:1]"));
    spy::state() = {};
    spy::state().faults["VLIBCSzHashAlloc"] = {1, false, 0x0100};
    EXPECT_EQ(VEMOFlashCacheConfigSet(&entry), -1);
    EXPECT_THAT(spy::LoggedTexts(), ElementsAre("Failed to alloc hash for [uuid], [0x0100 spy:1]"));
}

TEST_F(ConfigWriteTest, AFailedRefreshIsToldThoughTheFileIsChanged) {
    StoreAbc();
    const std::string copy = ReadWhole(kCopy);
    const FLASHCACHE_CONFIG_SEARCH search = Search(FLASHCACHE_SEARCH_BY_SECTION, "B");
    const FLASHCACHE_CONFIG entry = Entry("D");
    for (const auto& [program, logged] : {std::pair("/bin/cp", "Copy error"), {"/bin/mv", "Mv error"}}) {
        spy::state() = {};
        FailProgram(program);
        EXPECT_EQ(VEMOFlashCacheConfigSet(&entry), -1);
        EXPECT_EQ(VEMOFlashCacheConfigDelete(&search), -1);
        EXPECT_EQ(VEMOFlashCacheConfigDelete(&search), -1);  // there is nothing left, but the copy is stale
        EXPECT_THAT(spy::LoggedTexts(),
                    ElementsAre(logged, "Can't update config in /tmp", logged, "Can't update config in /tmp",
                                logged, "Can't update config in /tmp"));
        EXPECT_EQ(ReadWhole(kCopy), copy);
    }
    EXPECT_THAT(Stored(), ElementsAre("A", "C", "D"));
    EXPECT_TRUE(std::filesystem::exists(kStaging));  // of the failed move; the next refresh takes it over
    spy::state() = {};
    EXPECT_EQ(VEMOFlashCacheConfigTmpUpdate(), 0);
    EXPECT_EQ(ReadWhole(kCopy), ReadWhole(kFile));
    EXPECT_FALSE(std::filesystem::exists(kStaging));
}

TEST_F(ConfigWriteTest, AFailedMoveLeavesNoCopyWhereThereWasNone) {
    StoreAbc();
    std::filesystem::remove(kCopy);
    FailProgram("/bin/mv");
    EXPECT_EQ(VEMOFlashCacheConfigTmpUpdate(), -1);
    EXPECT_FALSE(std::filesystem::exists(kCopy));
}

TEST_F(ConfigWriteTest, ARefreshWithoutTheFileKeepsTheCopy) {
    WriteWhole(kCopy, "old");
    EXPECT_EQ(VEMOFlashCacheConfigTmpUpdate(), -1);
    EXPECT_EQ(ReadWhole(kCopy), "old");
    EXPECT_THAT(spy::LoggedTexts(), ElementsAre("Copy error"));
}

TEST_F(ConfigWriteTest, RemovesTheOneEntryThatMatches) {
    StoreAbc();
    const std::string a = SectionText("A");
    const std::string c = SectionText("C");
    spy::state() = {};
    FLASHCACHE_CONFIG_SEARCH search = Search(FLASHCACHE_SEARCH_BY_SECTION, "B");
    EXPECT_EQ(VEMOFlashCacheConfigDelete(&search), 0);
    EXPECT_THAT(Stored(), ElementsAre("A", "C"));
    EXPECT_EQ(SectionText("A"), a);
    EXPECT_EQ(SectionText("C"), c);
    EXPECT_EQ(ReadWhole(kCopy), ReadWhole(kFile));
    WriteWhole(kCopy, "stale");
    EXPECT_EQ(VEMOFlashCacheConfigDelete(&search), 0);
    EXPECT_EQ(ReadWhole(kCopy), ReadWhole(kFile));
    EXPECT_THAT(spy::state().runs, ElementsAre(copy_, move_, copy_, move_));
    search = Search(FLASHCACHE_SEARCH_BY_SSD_DEV_PATH, "/dev/md3");  // both have it: the first goes
    EXPECT_EQ(VEMOFlashCacheConfigDelete(&search), 0);
    EXPECT_THAT(Stored(VEMOFlashCacheConfigTmpGet), ElementsAre("C"));
    EXPECT_THAT(spy::LoggedTexts(true), IsEmpty());
}

TEST_F(ConfigWriteTest, AFailedRemovalKeepsAll) {
    StoreAbc();
    const std::string before = ReadWhole(kFile);
    const FLASHCACHE_CONFIG_SEARCH search = Search(FLASHCACHE_SEARCH_BY_SECTION, "B");
    spy::state() = {};
    spy::state().faults["VLIBCFileRemoveSection"] = {1, false, 0x0B00};
    EXPECT_EQ(VEMOFlashCacheConfigDelete(&search), -1);
    spy::state().faults["VLIBCFileEnumSection"] = {1, false, 0x0900};
    EXPECT_EQ(VEMOFlashCacheConfigDelete(&search), -1);
    EXPECT_THAT(
        spy::LoggedTexts(),
        ElementsAre("Failed to remove section [B] from [/usr/vemo/etc/flashcache.conf] [0x0B00 spy:1]",
                    "Failed to enum section of list /usr/vemo/etc/flashcache.conf, [0x0900 spy:1]",
                    "Failed to get config, [0x0900 spy:1]"));
    EXPECT_EQ(ReadWhole(kFile), before);
    EXPECT_THAT(spy::state().runs, IsEmpty());
}

TEST_F(ConfigWriteTest, RemovingAllLeavesTheCopy) {
    StoreAbc();
    const std::string copy = ReadWhole(kCopy);
    std::filesystem::remove(kLock);
    EXPECT_EQ(VEMOFlashCacheConfigDelete(nullptr), 0);
    EXPECT_FALSE(std::filesystem::exists(kFile));
    EXPECT_EQ(VEMOFlashCacheConfigDelete(nullptr), 0);
    EXPECT_EQ(ReadWhole(kCopy), copy);
    EXPECT_FALSE(std::filesystem::exists(kLock));
    const FLASHCACHE_CONFIG_SEARCH search = Search(FLASHCACHE_SEARCH_BY_SECTION, "B");
    EXPECT_EQ(VEMOFlashCacheConfigDelete(&search), -1);  // the copy cannot be made of nothing
    EXPECT_EQ(ReadWhole(kCopy), copy);
}

}  // namespace
