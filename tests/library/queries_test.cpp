// How large the live caches are, and what memory caches take.
#include <cstdlib>
#include <filesystem>

#include "support/library_test.h"

namespace {

using spy::Answer;
using spy::ToolRun;
using testing::IsEmpty;

constexpr uint64_t kFixed = 67493888;

// Cache devices 0, 1, ... of which the device-mapper tells a block size (as a text) and a number of blocks.
using Shown = std::vector<std::pair<const char*, uint64_t>>;

class LiveQueriesTest : public LibraryTest {
  protected:
    static void Show(const Shown& caches) {
        spy::state() = {};
        std::filesystem::remove_all("/dev/mapper");
        std::filesystem::create_directory("/dev/mapper");
        for (std::size_t i = 0; i < caches.size(); ++i) {
            WriteWhole("/dev/mapper/cachedev_" + std::to_string(i), "");
        }
        WriteWhole("/tmp/flashcache_stats",
                   "reads=1 writes=1\nread_hits=0 read_hit_percent=0 replacement=0 read_invalidates=0 "
                   "pending_enqueues=0 pending_inval=0 no_room=0 disk_reads=0 disk_writes=0 ssd_reads=0 "
                   "ssd_writes=0 uncached_reads=0 uncached_writes=0 uncached_IO_requeue=0 "
                   "uncached_sequential_reads=0 uncached_sequential_writes=0\n");
        spy::state().answer = [=](const ToolRun& run) {
            return Table(caches.at(static_cast<std::size_t>(run.arguments.at(1).back() - '0')));
        };
    }
    static Answer Table(const Shown::value_type& cache) {
        return {0, std::string("\tssd dev (/dev/md3), disk dev (/dev/vg1/volume_1) cache mode(WRITE_AROUND)\n"
                               "\tcapacity(1M), associativity(512), data block size(") +
                       cache.first + "K) metadata block size(4096b)\n\ttotal blocks(" +
                       std::to_string(cache.second) + "), cached blocks(0), cache percent(0)\n"};
    }
};

TEST_F(LiveQueriesTest, SizesAndMemoryAddUp) {
    const struct {
        Shown caches;
        uint64_t size;
        uint64_t memory;
    } cases[] = {
        {{}, 0, 0},
        {{{"4", 1000000}}, 4096000000, 16000000},
        {{{"64", 100000}}, 6553600000, 2600000},
        {{{"4", 1000000}, {"64", 100000}}, 10649600000, 18600000},
        {{{"64", 1ULL << 40}}, 1ULL << 56, 26ULL << 40},
        {{{"4", 0}}, 0, 0},
    };
    for (const auto& test : cases) {
        Show(test.caches);
        uint64_t size = 7;
        uint64_t memory = 7;
        EXPECT_EQ(VEMOFlashCacheCacheSizeGet(nullptr, &size), 0);
        EXPECT_EQ(VEMOFlashcacheUsedMemGet(nullptr, &memory), 0);
        EXPECT_EQ(size, test.size + 7);
        EXPECT_EQ(memory, test.memory + 7);
    }
}

TEST_F(LiveQueriesTest, ASearchPicksTheCache) {
    Show({{"4", 10}, {"64", 10}});
    FLASHCACHE_STAT_SEARCH search{};
    search.type = FLASHCACHE_SEARCH_BY_CACHE_DEV_PATH;
    search.CacheDevPath = "/dev/mapper/cachedev_1";
    uint64_t size = 0;
    uint64_t memory = 0;
    EXPECT_EQ(VEMOFlashCacheCacheSizeGet(&search, &size), 0);
    EXPECT_EQ(VEMOFlashcacheUsedMemGet(&search, &memory), 0);
    EXPECT_EQ(size, 655360U);
    EXPECT_EQ(memory, 260U);
    search.CacheDevPath = "/dev/mapper/cachedev_5";
    EXPECT_EQ(VEMOFlashCacheCacheSizeGet(&search, &size), -1);
    EXPECT_EQ(spy::LoggedTexts().back(), "Fail to get cache stat");
    EXPECT_EQ(VEMOFlashcacheUsedMemGet(&search, &memory), -1);
    EXPECT_EQ(spy::LoggedTexts().back(), "Fail to get cache stat");
    EXPECT_EQ(size, 655360U);
    for (const auto query : {VEMOFlashCacheCacheSizeGet, VEMOFlashcacheUsedMemGet}) {
        VLIBCErrSetEx(0, "", 0);
        EXPECT_EQ(query(nullptr, nullptr), -1);
        EXPECT_EQ(VLIBCErrGet(), 0x0D00);
    }
}

TEST_F(LiveQueriesTest, AStrangeBlockSizeEndsTheSum) {
    for (const auto& [text, number] : {std::pair("8", 8), {"0", 0}, {"4294967292", -4}, {"none", 0}}) {
        Show({{"4", 10}, {text, 10}, {"4", 10}});
        uint64_t memory = 0;
        EXPECT_EQ(VEMOFlashcacheUsedMemGet(nullptr, &memory), -1);
        EXPECT_EQ(memory, 160U);
        EXPECT_EQ(spy::LoggedTexts().back(), "Block size KB is unknown(" + std::to_string(number) + ")");
    }
    Show({{"4294967292", 10}});
    uint64_t size = 40960;
    EXPECT_EQ(VEMOFlashCacheCacheSizeGet(nullptr, &size), 0);
    EXPECT_EQ(size, 0U);  // the size is signed
}

// ---- What the configuration says ----

std::string Section(const char* name, const char* version, uint64_t bytes) {
    return std::string("[") + name + "]\nCacheVersion=" + version +
           "\nCacheSizeByte=" + std::to_string(bytes) + "\nReferencePath=/" + name + "\nSSDDevPath=/dev/" +
           name + "\n";
}

void Configure(const std::string& text) {
    WriteWhole("/tmp/flashcache.conf", text);
    spy::state() = {};
}

class ConfiguredQueriesTest : public LibraryTest {
  protected:
    ConfiguredQueriesTest() { WriteWhole("/etc.defaults/vemoinfo.conf", ""); }
};

TEST_F(ConfiguredQueriesTest, ACachesFixedMemoryGoesByItsVersion) {
    Configure(Section("a", "0", 1) + Section("b", "1", 1) + Section("c", "-1", 1) + Section("d", "7", 1) +
              "[e]\nSSDDevPath=/dev/e\n");
    const struct {
        const char* ssd;
        uint32_t kib;
        const char* logged;
    } cases[] = {
        {"/dev/a", 4096, nullptr},
        {"/dev/b", 416, nullptr},
        {"/dev/d", 0, nullptr},
        {"/dev/c", 0, "Incorect flashcache version"},
        {"/dev/e", 0, "Incorect flashcache version"},
        {"/dev/f", 0, "Can't find cache in the config file"},
    };
    for (const auto& test : cases) {
        spy::state() = {};
        FLASHCACHE_CONFIG_SEARCH search{};
        search.type = FLASHCACHE_SEARCH_BY_SSD_DEV_PATH;
        search.SSDDevPath = test.ssd;
        EXPECT_EQ(VEMOFlashCacheGetCacheMemoryComsuptionKb(&search), test.kib) << test.ssd;
        EXPECT_EQ(spy::LoggedTexts(), test.logged == nullptr ? std::vector<std::string>()
                                                             : std::vector<std::string>{test.logged});
    }
    spy::state().faults["VLIBCFileEnumSection"] = {};
    const FLASHCACHE_CONFIG_SEARCH any{};
    EXPECT_EQ(VEMOFlashCacheGetCacheMemoryComsuptionKb(&any), 0U);
    EXPECT_EQ(spy::LoggedTexts().back(), "Fail to get SSD cache config");
    std::filesystem::remove("/tmp/flashcache.conf");
    EXPECT_EQ(VEMOFlashCacheGetCacheMemoryComsuptionKb(nullptr), 416U);
}

TEST_F(ConfiguredQueriesTest, AllCachesTogetherNeedTheFixedAmountOnce) {
    constexpr uint64_t kGiB = 1ULL << 30U;
    const struct {
        std::string config;
        int result;
        uint64_t bytes;
        std::vector<std::string> logged;
    } cases[] = {
        {Section("a", "0", kGiB), 0, 71688192, {}},
        {Section("a", "1", kGiB), 0, 67919872, {}},
        {Section("a", "1", 65535), 0, kFixed, {}},
        {Section("a", "0", 4095) + Section("b", "0", 4096), 0, kFixed + 16, {}},
        {Section("a", "7", kGiB) + Section("b", "0", 4096), 0, kFixed + 16, {"Unknown version = 7"}},
        {Section("a", "0", 4096) + Section("b", "-1", 1) + Section("c", "0", 4096),
         3,
         16,
         {"Incorect flashcache version"}},
        {Section("a", "0", 4096) + "[b]\nSSDUUID=u\n", 2, 16, {"Incorect flashcache version"}},
    };
    for (const auto& test : cases) {
        Configure(test.config);
        uint64_t bytes = 1000;
        EXPECT_EQ(VEMOFlashCacheGetTotalMemoryConsumptionByte(&bytes), test.result) << test.config;
        EXPECT_EQ(bytes, test.bytes + 1000);
        EXPECT_EQ(spy::LoggedTexts(), test.logged);
        EXPECT_EQ(test.result != 0,
                  spy::LoggedTexts(true).back() != "Total memory bytes = " + std::to_string(bytes));
        EXPECT_THAT(spy::state().runs, IsEmpty());
    }
}

TEST_F(ConfiguredQueriesTest, WithoutACacheOrAConfigurationThereIsNothingToAdd) {
    uint64_t bytes = 1000;
    for (const char* none : {"", "# none\n"}) {
        Configure(none);
        bytes = 1000;
        EXPECT_EQ(VEMOFlashCacheGetTotalMemoryConsumptionByte(&bytes), 0);
        EXPECT_EQ(bytes, 0U);
    }
    spy::state().faults["VLIBCFileEnumSection"] = {};
    bytes = 1000;
    EXPECT_EQ(VEMOFlashCacheGetTotalMemoryConsumptionByte(&bytes), -1);
    EXPECT_EQ(bytes, 1000U);
    EXPECT_EQ(spy::LoggedTexts().back(), "Fail to get SSD cache config");
    EXPECT_EQ(VEMOFlashCacheGetTotalMemoryConsumptionByte(nullptr), -1);
    EXPECT_EQ(spy::LoggedTexts().back(), "Error: Parameter should not be NULL!");
}

TEST_F(ConfiguredQueriesTest, PinBitmapsAddToCachesOfTheNewVersion) {
    WriteWhole("/etc.defaults/vemoinfo.conf", "cache_support_pin=yes\n");
    const struct {
        const char* support;
        const char* size;
        int result;
        uint64_t bytes;
    } cases[] = {
        {"Yes\n", "4096\n", 0, kFixed + 16 + 26 + 4096 + 26 + 4096},
        {"No\n", "4096\n", 0, kFixed + 16 + 26 + 26},
        {"", "4096\n", 0, kFixed + 16 + 26 + 26},
        {"Yes\n", "much\n", 3, 16 + 26},
    };
    for (const auto& test : cases) {
        Configure(Section("a", "0", 4096) + Section("b", "1", 65536) + Section("c", "1", 65536));
        spy::state().answer = [&](const ToolRun& run) {
            return Answer{0, run.arguments[0] == "--support-pin" ? test.support : test.size};
        };
        uint64_t bytes = 0;
        EXPECT_EQ(VEMOFlashCacheGetTotalMemoryConsumptionByte(&bytes), test.result);
        EXPECT_EQ(bytes, test.bytes);
        EXPECT_EQ(spy::state().runs[0].arguments,
                  (std::vector<std::string>{"--support-pin", "--mount-path", "/b"}));
    }
    EXPECT_EQ(spy::LoggedTexts().back(), "Can't get the bitmap size of volume (/b)");
}

}  // namespace
