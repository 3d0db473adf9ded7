// What other users lay in /tmp under the library's names is never written through, waited on or believed.
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <functional>

#include "support/library_test.h"
#include "support/test_volume.h"

namespace {

namespace fs = std::filesystem;

using testing::Contains;
using testing::IsEmpty;
using testing::StartsWith;

constexpr uid_t kOtherUser = 65534;
constexpr const char* kConfig = "/usr/vemo/etc/flashcache.conf";
constexpr const char* kStaging = "/tmp/flashcache-tmp.conf";
constexpr const char* kCopy = "/tmp/flashcache.conf";
constexpr const char* kOverride = "/tmp/flashcache_stats";
constexpr const char* kDebugMarker = "/tmp/cache-debug-remove";
constexpr const char* kRunMarker = "/tmp/flashcache_file_statistics_processing";
constexpr const char* kDownload = "/tmp/support_ssd.db";
constexpr const char* kDatabase = "/etc.defaults/support_ssd.db";

constexpr const char* kVictim = "/usr/vemo/etc/victim";
constexpr const char* kNoFile = "/usr/vemo/etc/none";
constexpr const char* kFolder = "/usr/vemo/etc/folder";

// Something that a user can lay at `path`; `content` is what would be believed.
struct Kind {
    const char* name;
    std::function<void(const char* path, const std::string& content)> lay;
};

const Kind kKinds[] = {
    {"a symbolic link", [](const char* path, const auto&) { fs::create_symlink(kVictim, path); }},
    {"a symbolic link", [](const char* path, const auto&) { fs::create_symlink(kNoFile, path); }},
    {"a symbolic link", [](const char* path, const auto&) { fs::create_symlink(kFolder, path); }},
    {"a file with other names",
     [](const char* path, const std::string& content) {
         WriteWhole("/tmp/original", content);
         fs::create_hard_link("/tmp/original", path);
     }},
    {"a named pipe", [](const char* path, const auto&) { ASSERT_EQ(mkfifo(path, 0666), 0); }},
    {"a folder", [](const char* path, const auto&) { fs::create_directory(path); }},
    {"a file", [](const char* path, const std::string& content) { WriteWhole(path, content); }},
};

int SetEntry() {
    FLASHCACHE_CONFIG entry{};
    entry.SectionName = entry.SSDUUID = const_cast<char*>("ours");
    return VEMOFlashCacheConfigSet(&entry);
}

class ForeignFilesTest : public LibraryTest {
  protected:
    void SetUp() override {
        alarm(20);  // so that a wait on a pipe ends as a failure
        // The kernel protects folders such as /tmp by itself where the machine is set up so. Without the
        // sticky bit it does not, and the library is on its own.
        ASSERT_EQ(chmod("/tmp", 0777), 0);
        fs::create_directory(kFolder);
        spy::state().answer = [](const spy::ToolRun& run) -> std::optional<spy::Answer> {
            if (run.program != "/usr/bin/wget") {
                return std::nullopt;
            }
            WriteWhole(run.arguments.at(2),
                       "downloaded");  // writes through what lies there, as the tool does
            return spy::Answer{};
        };
    }

    // Lays one kind for another user; the victim's content is as tempting as the rest.
    static void Lay(const Kind& kind, const char* path, const std::string& content) {
        fs::remove_all(path);
        fs::remove("/tmp/original");
        WriteWhole(kVictim, content);
        kind.lay(path, content);
        ASSERT_EQ(lchown(path, kOtherUser, kOtherUser), 0);
        spy::state().log.clear();
    }

    static void ExpectNothingTouched(const std::string& content) {
        EXPECT_EQ(ReadWhole(kVictim), content);
        EXPECT_FALSE(fs::exists(kNoFile));
        EXPECT_TRUE(fs::is_empty(kFolder));
        if (fs::exists("/tmp/original")) {
            EXPECT_EQ(ReadWhole("/tmp/original"), content);
        }
    }

    static void ExpectOurs(const char* path, const std::string& content) {
        EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(path)));
        EXPECT_EQ(ReadWhole(path), content);
        struct stat status{};
        EXPECT_EQ(lstat(path, &status), 0);
        EXPECT_EQ(status.st_uid, 0U);
    }
};

// A use of a name that makes it ours first.
struct Writer {
    const char* path;
    int (*use)();
    void (*expectDone)();
};

const Writer kWriters[] = {
    {kStaging, SetEntry, [] { EXPECT_FALSE(fs::exists(fs::symlink_status(kStaging))); }},
    {kCopy, VEMOFlashCacheConfigTmpUpdate, [] { EXPECT_EQ(ReadWhole(kCopy), ReadWhole(kConfig)); }},
    {kRunMarker, [] { return FlashcacheDoStatistics("volume_1", "/volume1"); },
     [] { EXPECT_FALSE(fs::exists(fs::symlink_status(kRunMarker))); }},
    {kDownload, VEMOFlashCacheSupportSSDUpdate, [] { EXPECT_EQ(ReadWhole(kDatabase), "downloaded"); }},
};

TEST_F(ForeignFilesTest, WhatIsToBeWrittenIsMadeOursFirst) {
    ASSERT_EQ(SetEntry(), 0);
    MountVolume();
    const std::string content = "[evil]\n\tSSDUUID = evil\n";
    for (const Writer& writer : kWriters) {
        for (const Kind& kind : kKinds) {
            SCOPED_TRACE(std::string(kind.name) + " at " + writer.path);
            Lay(kind, writer.path, content);
            EXPECT_EQ(writer.use(), 0);
            writer.expectDone();
            ExpectNothingTouched(content);
            ExpectOurs(kCopy, ReadWhole(kConfig));
            EXPECT_THAT(spy::LoggedTexts(), Contains(StartsWith(std::string("Removed ") + writer.path +
                                                                ": it was " + kind.name + " of user 65534")));
        }
    }
    UnmountVolume();
}

TEST_F(ForeignFilesTest, WhatCannotBeMadeOursIsRefused) {
    ASSERT_EQ(SetEntry(), 0);
    const std::string before = ReadWhole(kConfig);
    WriteWhole(kDatabase, "old");
    for (const Writer& writer : kWriters) {
        SCOPED_TRACE(writer.path);
        fs::remove(writer.path);
        const std::string inside = std::string(writer.path) + "/full";
        fs::create_directory(writer.path);
        WriteWhole(inside, "");
        spy::state().log.clear();
        EXPECT_EQ(writer.use(), -1);
        EXPECT_THAT(spy::LoggedTexts(), Contains(StartsWith(std::string("Refused ") + writer.path +
                                                            ": a folder of user 0 lies there; remove it")));
        EXPECT_EQ(std::distance(fs::directory_iterator(writer.path), {}), 1);
        fs::remove_all(writer.path);
    }
    EXPECT_EQ(ReadWhole(kConfig), before);
    EXPECT_EQ(ReadWhole(kDatabase), "old");
}

// A use of a name that only looks.
struct Reader {
    const char* path;
    std::string content;
    std::function<bool()> believes;
};

std::vector<Reader> Readers() {
    VLIBC_PROC* self = VLIBCProcGetByPid(getpid());
    const std::string run =
        "pid=" + std::to_string(getpid()) + "\ncmd=" + self->cmd + "\nvolume_id=volume_1\n";
    VLIBCProcFree(self);
    return {
        {kCopy, "[evil]\n\tSSDDevPath = /dev/md3\n\tFlushState = normal\n",
         [] {
             FLASHCACHE_CONFIG* list = nullptr;
             const int count = VEMOFlashCacheConfigTmpGet(nullptr, &list);
             const bool found = list != nullptr;
             VEMOFlashCacheConfigFree(list);
             return count > 0 || found ||
                    VEMOFlashCacheIsRemoveInFlushState("/dev/md3", FLASHCACHE_FLUSH_STATE_NORMAL) == 1;
         }},
        {kOverride,
         "reads=9 writes=9\nread_hits=9 read_hit_percent=9 replacement=0 read_invalidates=0 "
         "pending_enqueues=0 pending_inval=0 no_room=0 disk_reads=0 disk_writes=0 ssd_reads=0 ssd_writes=0 "
         "uncached_reads=0 uncached_writes=0 uncached_IO_requeue=0 uncached_sequential_reads=0 "
         "uncached_sequential_writes=0\n",
         [] {
             FLASHCACHE_COUNT_STAT out{};
             return VEMOFlashCacheCountStatGet("md3", "volume_1", FLASHCACHE_WRITE_AROUND, &out) == 0;
         }},
        {kDebugMarker, "", [] { return VEMOFlashCacheIsDebug(0) == 1; }},
        {kRunMarker, run,
         [] {
             return FlashcacheFileStatisticsIsProcessing() == 1 ||
                    FlashcacheCheckFileStatisticsProgressFile(nullptr, 0) == 1;
         }},
    };
}

TEST_F(ForeignFilesTest, WhatIsReadIsBelievedOnlyIfOurs) {
    for (const Reader& reader : Readers()) {
        for (const Kind& kind : kKinds) {
            SCOPED_TRACE(std::string(kind.name) + " at " + reader.path);
            Lay(kind, reader.path, reader.content);
            EXPECT_FALSE(reader.believes());
            ExpectNothingTouched(reader.content);
            EXPECT_THAT(spy::LoggedTexts(), Contains(StartsWith(std::string("Refused ") + reader.path + ": " +
                                                                kind.name + " of user 65534 lies there")));
        }
        fs::remove_all(reader.path);
        EXPECT_FALSE(reader.believes());
        WriteWhole(reader.path, reader.content);
        spy::state().log.clear();
        EXPECT_TRUE(reader.believes()) << reader.path;
        fs::remove(reader.path);
    }
}

TEST_F(ForeignFilesTest, OursIsWhatRootOrTheCallerMade) {
    ASSERT_EQ(seteuid(kOtherUser), 0);
    for (const auto& [owner, ours] : {std::pair<uid_t, int>{0, 1}, {kOtherUser, 1}, {1234, 0}}) {
        ASSERT_EQ(seteuid(0), 0);
        WriteWhole(kDebugMarker, "");
        ASSERT_EQ(chown(kDebugMarker, owner, owner), 0);
        ASSERT_EQ(seteuid(kOtherUser), 0);
        EXPECT_EQ(VEMOFlashCacheIsDebug(0), ours) << owner;
    }
    ASSERT_EQ(seteuid(0), 0);
}

}  // namespace
