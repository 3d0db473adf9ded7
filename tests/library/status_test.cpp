#include <unistd.h>

#include "library/stat_query.h"
#include "support/appliance.h"

namespace {

using namespace appliance;
using spy::Answer;
using spy::ToolRun;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

std::string Table(const std::string& ssd, const std::string& space, const std::string& mode = "WRITE_BACK") {
    return "0 4194304 flashcache conf:\n"
           "\tssd dev (" +
           ssd + "), disk dev (" + space + ") cache mode(" + mode + ")\n" +
           "\tcapacity(16M), associativity(512), data block size(4K) metadata block size(4096b)\n"
           "\ttotal blocks(4096), cached blocks(17), cache percent(0)\n"
           "\tsplit-io(0) support pin file(1)\n";
}

// A device node without a kernel behind it, whose table dmsetup shows as the test says.
class StatusTest : public LibraryTest {
  protected:
    void SetUp() override {
        WriteWhole("/tmp/flashcache_stats", "");
        spy::state().answer = [this](const ToolRun& run) -> std::optional<Answer> {
            EXPECT_EQ(run.program, "/sbin/dmsetup");
            EXPECT_EQ(run.arguments.at(0), "table");
            return tables_[run.arguments.at(1)];
        };
    }
    void AddDevice(const std::string& name, const Answer& table) {
        Touch("/dev/mapper/" + name);
        tables_["/dev/mapper/" + name] = table;
    }
    std::map<std::string, Answer> tables_;
};

TEST_F(StatusTest, WithoutAMapperFolderThereIsNoCache) {
    ASSERT_EQ(rmdir("/dev/mapper"), 0);
    StatList list;
    const FLASHCACHE_STAT_SEARCH searches[] = {Search(3, kSsd), Search(6, nullptr), Search(9, nullptr)};
    for (const FLASHCACHE_STAT_SEARCH& search : searches) {
        EXPECT_EQ(Get(&search, list), 0);
    }
    EXPECT_EQ(Get(nullptr, list), 0);
    EXPECT_EQ(list, nullptr);
    EXPECT_THAT(spy::LoggedTexts(), IsEmpty());
    char path[64] = "";
    EXPECT_EQ(VEMOFlashcacheGetCachePath(kSsd, path, sizeof path), -1);
    EXPECT_EQ(VEMOFlashCacheSSDPathGet(kCache, path, sizeof path), -1);
    EXPECT_EQ(VLIBCErrGet(), 0x0600);
    Touch("/dev/mapper");
    EXPECT_EQ(Get(nullptr, list), -1);
    EXPECT_EQ(spy::LoggedTexts().back(), "[/dev/mapper] is not a directory!?");
}

TEST_F(StatusTest, WithoutACacheDeviceNamedOnesAreFailures) {
    StatList list;
    EXPECT_EQ(Get(nullptr, list), 0);
    const FLASHCACHE_STAT_SEARCH bySsd = Search(3, kSsd);
    const FLASHCACHE_STAT_SEARCH byDevice = Search(6, kCache);
    EXPECT_EQ(Get(&bySsd, list), -1);
    EXPECT_EQ(Get(&byDevice, list), -1);
    EXPECT_THAT(spy::LoggedTexts(),
                ElementsAre(HasSubstr("Can't find flashcache device from path/dev/mapper/cachedev*, Error="),
                            HasSubstr("Fail to get cachedev path, Error="),
                            "Fail to get stat of [/dev/mapper/cachedev_0], Error=No such file or directory"));
    EXPECT_EQ(VLIBCErrGet(), 0);
}

TEST_F(StatusTest, BadArgumentsAreRefused) {
    StatList list;
    const FLASHCACHE_STAT_SEARCH searches[] = {Search(3, nullptr), Search(4, nullptr), Search(6, nullptr),
                                               Search(1, kSsd),    Search(2, kSsd),    Search(5, kSsd)};
    for (const FLASHCACHE_STAT_SEARCH& search : searches) {
        VLIBCErrSetEx(0, "", 0);
        EXPECT_EQ(Get(&search, list), -1) << search.type;
        EXPECT_EQ(VLIBCErrGet(), 0x0D00) << search.type;
    }
    EXPECT_EQ(VEMOFlashCacheStatGet(nullptr, nullptr), -1);
    char path[8] = "";
    EXPECT_EQ(VEMOFlashcacheGetCachePath(nullptr, path, sizeof path), -1);
    EXPECT_EQ(VEMOFlashcacheGetCachePath(kSsd, nullptr, 8), -1);
    EXPECT_EQ(VEMOFlashcacheGetCachePath(kSsd, path, 0), -1);
    EXPECT_EQ(VEMOFlashCacheSSDPathGet("/dev/mapper/other", path, sizeof path), -1);
    EXPECT_EQ(VEMOFlashCacheSSDPathGet(nullptr, path, sizeof path), -1);
    EXPECT_EQ(VEMOFlashCacheSSDPathGet(kCache, nullptr, 8), -1);
    EXPECT_EQ(VEMOFlashCacheSSDPathGet(kCache, path, -1), -1);
    VEMOFlashCacheStatFree(nullptr);
    EXPECT_THAT(spy::state().runs, IsEmpty());
    EXPECT_THAT(spy::LoggedTexts(), IsEmpty());
}

TEST_F(StatusTest, CachesComeInTheOrderOfTheirNames) {
    WriteWhole("/tmp/flashcache_stats",
               "reads=0 writes=0\nread_hits=0 read_hit_percent=0 replacement=0 read_invalidates=0 "
               "pending_enqueues=0 pending_inval=0 no_room=0 disk_reads=0 disk_writes=0 ssd_reads=0 "
               "ssd_writes=0 uncached_reads=0 uncached_writes=0 uncached_IO_requeue=0 "
               "uncached_sequential_reads=0 uncached_sequential_writes=0\n");
    for (const char* number : {"2", "0", "10", "1"}) {
        AddDevice(std::string("cachedev_") + number,
                  {0, Table(std::string("/dev/md") + number, "/dev/vg/lv", "WRITE_AROUND")});
    }
    AddDevice("cachedev_11", {0, ""});  // vanished, or not a cache: no table
    AddDevice("other", {0, Table("/dev/md20", "/dev/vg/lv")});
    StatList list;
    ASSERT_EQ(Get(nullptr, list), 4);
    std::vector<std::string> ssds;
    for (const FLASHCACHE_STAT* stat = list.get(); stat != nullptr; stat = stat->Next) {
        ssds.emplace_back(stat->SSDDevPath);
        EXPECT_EQ(stat->WriteMode, FLASHCACHE_WRITE_AROUND);
        EXPECT_EQ(stat->ReclaimPolicy, FLASHCACHE_RECLAIM_FIFO);  // an unreadable knob counts as 0
        EXPECT_EQ(stat->TotalBlocks, 4096U);
        EXPECT_EQ(stat->CachedBlocks, 17U);
        EXPECT_EQ(stat->SupportPin, 1);
        EXPECT_EQ(stat->BlockSizeKB, 4);
    }
    EXPECT_THAT(ssds, ElementsAre("/dev/md0", "/dev/md1", "/dev/md10", "/dev/md2"));
    EXPECT_THAT(spy::LoggedTexts(),
                testing::Contains("Failed to open /proc/sys/dev/flashcache_md0+lv/reclaim_policy from "
                                  "flashcache_stats, Error=No such file or directory"));
}

TEST_F(StatusTest, OneCacheThatCannotBeDescribedFailsTheQueryForAll) {
    AddDevice("cachedev_0", {0, "", false});
    StatList list;
    EXPECT_EQ(Get(nullptr, list), -1);
    EXPECT_THAT(
        spy::LoggedTexts(),
        ElementsAre(HasSubstr("Failed to popen cmd = '/sbin/dmsetup table /dev/mapper/cachedev_0', Error="),
                    HasSubstr("Failed to get dmsetup stat from flashcache_stats, Error="),
                    HasSubstr("Fail to enum all stat, Error="), HasSubstr("Fail to enum all stat, Error=")));
}

TEST_F(StatusTest, TablesOfNoCacheAreRefused) {
    const std::string longPath = "/dev/" + std::string(130, 'x');
    const struct {
        std::string table;
        std::string ssd, space;
    } cases[] = {
        {"0 8 linear 7:1 0\n", "", ""},
        {Table("md3", kSpace), "md3", kSpace},
        {Table(kSsd, "volume_1"), kSsd, "volume_1"},
        {Table(longPath, kSpace), "", ""},
        {std::string("\0\xff\n\t\t((((\n", 11), "", ""},
        {"\tssd dev (/dev/md3), disk dev (", "/dev/md3", ""},
        {std::string(20U << 20U, '('), "", ""},
        {Table(kSsd, kSpace) + Table("x", "y"), "x", "y"},  // the last line that matches wins
    };
    AddDevice("cachedev_0", {});
    for (const auto& test : cases) {
        tables_[kCache] = {0, test.table};
        spy::state().log.clear();
        StatList list;
        const FLASHCACHE_STAT_SEARCH search = Search(6, kCache);
        EXPECT_EQ(Get(&search, list), -1);
        EXPECT_THAT(spy::LoggedTexts(),
                    testing::Contains("Failed to parser SSD Path[" + test.ssd + "] or Space Path[" +
                                      test.space + "] for proc flashcache stat from flashcache_stats"));
    }
}

TEST_F(StatusTest, ModesOtherThanTheKernelsThreeAreUnknown) {
    AddDevice("cachedev_0", {});
    for (const char* mode : {"WRITE_BACKUP", "WRITE_BACK ", "write_back", "WRITE_THROUGH"}) {
        tables_[kCache] = {0, Table(kSsd, kSpace, mode)};
        spy::state().log.clear();
        WriteWhole("/tmp/flashcache_stats", "reads=0 writes=0\nread_hits=0\n");
        StatList list;
        const FLASHCACHE_STAT_SEARCH search = Search(6, kCache);
        EXPECT_EQ(Get(&search, list), -1);
        const bool known = mode == std::string("WRITE_THROUGH");
        EXPECT_THAT(spy::LoggedTexts(), testing::Contains(std::string("Incorrect FLASHCACHE_WRITE_MODE: ") +
                                                          (known ? "0" : "-1")));
        EXPECT_THAT(spy::LoggedTexts(),
                    testing::Contains("Failed to get proc flashcache stat from flashcache_stats"));
    }
}

TEST_F(StatusTest, ACacheIsFoundByTheBeginningOfItsDisks) {
    AddDevice("cachedev_0", {0, Table("/dev/md5", "/dev/vg1/volume_5")});
    AddDevice("cachedev_1", {0, "0 8 linear\n"});  // the texts of the device before stay
    AddDevice("cachedev_2", {0, Table("/dev/md20", "/dev/vg1/volume_1")});
    const struct {
        const char* path;
        int size, result;
        const char* found;
    } cases[] = {{"/dev/md2", 64, 1, "/dev/mapper/cachedev_2"},
                 {"/dev/vg1/volume_1", 12, 1, "/dev/mapper"},
                 {"/dev/vg1/volume_5", 1, 1, ""},
                 {"/dev/md7", 64, 0, "?"},
                 {"/dev/vg1/volume_5/x", 64, 0, "?"},
                 {"", 64, 1, "/dev/mapper/cachedev_0"}};
    for (const auto& test : cases) {
        char path[64] = "?";
        EXPECT_EQ(VEMOFlashcacheGetCachePath(test.path, path, test.size), test.result) << test.path;
        EXPECT_STREQ(path, test.found) << test.path;
    }
    EXPECT_THAT(spy::LoggedTexts(), IsEmpty());
    tables_["/dev/mapper/cachedev_1"].starts = false;
    char path[64] = "?";
    EXPECT_EQ(VEMOFlashcacheGetCachePath("/dev/md2", path, sizeof path), -1);
    EXPECT_STREQ(path, "?");
    EXPECT_EQ(tables_.size(), 3U);
}

}  // namespace
