#include <fcntl.h>
#include <sys/file.h>

#include <filesystem>

#include "support/library_test.h"

namespace {

using spy::ToolRun;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

constexpr const char* kPersistent = "/usr/vemo/etc/flashcache_apm_flush_done.conf";
constexpr const char* kRuntime = "/var/run/ssd-cache/flashcache_apm_flush_done.conf";
constexpr const char* kRuntimeDir = "/var/run/ssd-cache";
constexpr const char* kApmLock = "/run/lock/ssdcache-apm-flush.lock";

class ApmFlushRecordTest : public LibraryTest {};

TEST_F(ApmFlushRecordTest, SetsAndRemovesInBothFiles) {
    EXPECT_EQ(VEMOFlashCacheApmFlushStatusSet("cache1", 1), 0);
    EXPECT_EQ(VEMOFlashCacheApmFlushStatusSet("cache2", 1), 0);
    EXPECT_EQ(ReadWhole(kPersistent), "cache1=yes\ncache2=yes\n");
    EXPECT_EQ(ReadWhole(kRuntime), ReadWhole(kPersistent));
    EXPECT_EQ(VEMOFlashCacheIsApmFlushDone("cache1"), 1);
    EXPECT_EQ(VEMOFlashCacheApmFlushStatusSet("cache1", 0), 0);
    EXPECT_EQ(VEMOFlashCacheApmFlushStatusSet("cache1", 0), 0);
    EXPECT_EQ(ReadWhole(kPersistent), "cache2=yes\n");
    EXPECT_EQ(ReadWhole(kRuntime), ReadWhole(kPersistent));
    EXPECT_EQ(VEMOFlashCacheIsApmFlushDone("cache1"), 0);
    EXPECT_THAT(spy::LoggedTexts(true), IsEmpty());
    EXPECT_THAT(spy::state().runs, IsEmpty());
}

TEST_F(ApmFlushRecordTest, RemovingFromNothingMakesNoFile) {
    EXPECT_EQ(VEMOFlashCacheApmFlushStatusSet("cache1", 0), 0);
    EXPECT_TRUE(std::filesystem::is_directory(kRuntimeDir));
    EXPECT_FALSE(std::filesystem::exists(kPersistent) || std::filesystem::exists(kRuntime));
}

TEST_F(ApmFlushRecordTest, TheFirstReadAfterARestartCopiesTheRecord) {
    WriteWhole(kPersistent, "cache1=yes\n");
    EXPECT_EQ(VEMOFlashCacheIsApmFlushDone("cache1"), 1);
    EXPECT_EQ(VEMOFlashCacheIsApmFlushDone("cache"), 0);
    EXPECT_THAT(spy::state().runs, ElementsAre(ToolRun{"/bin/cp", "", {"-f", kPersistent, kRuntime}}));
    for (const char* value : {"no", "YES", "yes ", "yesyesyes", "yes\xFF", ""}) {
        WriteWhole(kRuntime, std::string("cache1=") + value + "\n");
        EXPECT_EQ(VEMOFlashCacheIsApmFlushDone("cache1"), 0) << value;
    }
    EXPECT_EQ(ReadWhole(kPersistent), "cache1=yes\n");
}

TEST_F(ApmFlushRecordTest, WithoutAnyRecordBothFilesAreMadeEmpty) {
    EXPECT_EQ(VEMOFlashCacheIsApmFlushDone("cache1"), 0);  // no folder yet, and none is made here
    EXPECT_THAT(spy::LoggedTexts(),
                ElementsAre(std::string("Failed to touch ") + kRuntime, "Failed to create files"));
    std::filesystem::remove(kPersistent);
    std::filesystem::create_directory(kRuntimeDir);
    EXPECT_EQ(VEMOFlashCacheIsApmFlushDone("cache1"), 0);
    EXPECT_TRUE(std::filesystem::is_empty(kPersistent) && std::filesystem::is_empty(kRuntime));
    EXPECT_EQ(spy::state().log.size(), 2U);
}

TEST_F(ApmFlushRecordTest, InvalidArgumentsTouchNothing) {
    EXPECT_EQ(VEMOFlashCacheApmFlushStatusSet("cache1", 2), 0);
    EXPECT_EQ(VEMOFlashCacheApmFlushStatusSet(nullptr, 1), 0);
    EXPECT_EQ(VEMOFlashCacheIsApmFlushDone(nullptr), 0);
    EXPECT_THAT(spy::LoggedTexts(),
                ElementsAre("Incorrect paramter", "Incorrect paramter", "Incorrect paramter"));
    EXPECT_FALSE(std::filesystem::exists(kApmLock) || std::filesystem::exists(kRuntimeDir));
}

TEST_F(ApmFlushRecordTest, EachFailureStopsWithItsMessage) {
    const std::string set = "Fail to set cache [c] apm flush done key to ";
    const std::string removed = "Failed to remove apm status of cache [c] to ";
    const struct {
        unsigned status;
        const char* function;
        int call;
        std::string logged;
    } cases[] = {
        {1, "VLIBCFileSetKeyValue", 1, set + kPersistent + "[0x0B00 spy:1]"},
        {1, "VLIBCFileSetKeyValue", 2, set + kRuntime + "[0x0B00 spy:1]"},
        {0, "VLIBCFileRemoveKey", 1, removed + kPersistent + "[0x0B00 spy:1]"},
        {0, "VLIBCFileRemoveKey", 2, removed + kRuntime + "[0x0B00 spy:1]"},
    };
    ASSERT_EQ(VEMOFlashCacheApmFlushStatusSet("other", 1), 0);
    for (const auto& test : cases) {
        ASSERT_EQ(VEMOFlashCacheApmFlushStatusSet("c", 1 - test.status), 0);
        spy::state() = {};
        spy::state().faults[test.function] = {test.call, false, 0x0B00};
        EXPECT_EQ(VEMOFlashCacheApmFlushStatusSet("c", test.status), -1);
        EXPECT_THAT(spy::LoggedTexts(), ElementsAre(test.logged));
        EXPECT_EQ(ReadWhole(kPersistent) == ReadWhole(kRuntime), test.call == 1);
        EXPECT_EQ(VEMOFlashCacheIsApmFlushDone("other"), 1);
        EXPECT_EQ(VEMOFlashCacheApmFlushStatusSet("c", test.status), 0);
        EXPECT_EQ(ReadWhole(kPersistent), ReadWhole(kRuntime));
    }
}

TEST_F(ApmFlushRecordTest, AFileInThePlaceOfTheFolderFails) {
    WriteWhole(kRuntimeDir, "");
    WriteWhole(kPersistent, "cache1=yes\n");
    EXPECT_EQ(VEMOFlashCacheApmFlushStatusSet("cache1", 0), -1);
    EXPECT_EQ(VEMOFlashCacheIsApmFlushDone("cache1"), 0);
    EXPECT_THAT(spy::LoggedTexts(), ElementsAre("Failed to create /var/run/ssd-cache: File exists",
                                                "Error: /var/run/ssd-cache doesn't exist",
                                                "Failed to create /var/run/ssd-cache: File exists",
                                                "Failed to  create directory", "Failed to create files"));
    EXPECT_EQ(ReadWhole(kPersistent), "cache1=yes\n");
}

TEST_F(ApmFlushRecordTest, NothingWithoutTheLock) {
    int holder = -1;
    ASSERT_EQ(VEMOFlashCacheLock(kApmLock, 1, &holder), 1);
    EXPECT_EQ(VEMOFlashCacheApmFlushStatusSet("cache1", 1), -1);
    EXPECT_EQ(VEMOFlashCacheIsApmFlushDone("cache1"), 0);
    EXPECT_THAT(spy::LoggedTexts(), ElementsAre(StartsWith("Failed to lock"), "Failed to get lock",
                                                StartsWith("Failed to lock"), "Failed to get lock"));
    EXPECT_FALSE(std::filesystem::exists(kPersistent));
    VEMOFlashCacheUnlock(holder);
}

TEST_F(ApmFlushRecordTest, ACopyThatFailsIsTold) {
    WriteWhole(kPersistent, "cache1=yes\n");
    spy::state().answer = [](const ToolRun&) { return spy::Answer{1, ""}; };
    EXPECT_EQ(CreateConfigFilesIfNeeded(kPersistent, kRuntime, kRuntimeDir), -1);
    EXPECT_THAT(
        spy::LoggedTexts(),
        ElementsAre(std::string("Failed to copy ") + kPersistent + " to " + kRuntime, "Failed to copy file"));
}

}  // namespace
