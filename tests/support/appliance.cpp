#include "support/appliance.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <memory>

namespace appliance {
namespace {

constexpr std::size_t kBlockSize = 4096;

using Reader = int (*)(const FLASHCACHE_CONFIG_SEARCH*, FLASHCACHE_CONFIG**);

std::string FlushStateFrom(Reader read, const char* ssd) {
    FLASHCACHE_CONFIG_SEARCH search{};
    search.type = FLASHCACHE_SEARCH_BY_SSD_DEV_PATH;
    search.SSDDevPath = ssd;
    FLASHCACHE_CONFIG* entry = nullptr;
    if (read(&search, &entry) != 1) {
        return "unreadable";
    }
    std::string state = entry->FlushState;
    VEMOFlashCacheConfigFree(entry);
    return state;
}

std::string Blocks(int count, char seed) {
    std::string all;
    for (int number = 0; number < count; ++number) {
        std::string block = seed + std::to_string(number) + ' ';
        while (block.size() < kBlockSize) {
            block += block;
        }
        all += block.substr(0, kBlockSize);
    }
    return all;
}

}  // namespace

int RunProgram(std::vector<std::string> words) {
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (std::string& word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    pid_t child = 0;
    return posix_spawnp(&child, arguments[0], nullptr, nullptr, arguments.data(), environ) == 0 ? Wait(child)
                                                                                                : 127;
}

void SetFault(const std::string& name, const std::string& value) {
    ASSERT_EQ(RunProgram({"vemo-appliance", "fault", name, value}), 0) << name << ' ' << value;
}

void Touch(const std::string& path) {
    WriteWhole(path, "");
}

void Replace(const std::string& path, const std::string& from, const std::string& text) {
    std::string whole = ReadWhole(path);
    const std::size_t at = whole.find(from);
    ASSERT_NE(at, std::string::npos) << from << " in " << path;
    WriteWhole(path, whole.replace(at, from.size(), text));
}

int KnobValue(const std::string& knob, const std::string& cache) {
    return std::stoi(ReadWhole("/proc/sys/dev/flashcache_" + cache + "/" + knob));
}

int DirtyBlocks(const std::string& cache) {
    const std::string text = ReadWhole("/proc/flashcache/" + cache + "/flashcache_progress");
    return std::stoi(text.substr(text.rfind('=') + 1));
}

pid_t Fork(const std::function<int()>& body) {
    const pid_t child = fork();
    if (child == 0) {
        _exit(body());
    }
    return child;
}

int Wait(pid_t child) {
    int status = 0;
    waitpid(child, &status, 0);
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

void WriteBlocks(const std::string& device, int count, char seed) {
    const std::string blocks = Blocks(count, seed);
    const int fd = open(device.c_str(), O_WRONLY | O_CLOEXEC);
    ASSERT_EQ(pwrite(fd, blocks.data(), blocks.size(), 0), static_cast<ssize_t>(blocks.size())) << device;
    ASSERT_EQ(fsync(fd), 0) << device;
    close(fd);
}

bool HoldsBlocks(const std::string& device, int count, char seed) {
    std::string held(static_cast<std::size_t>(count) * kBlockSize, '\0');
    std::ifstream file(device, std::ios::binary);
    file.read(held.data(), static_cast<std::streamsize>(held.size()));
    return file.good() && held == Blocks(count, seed);
}

void AddEntry(const char* section, const char* ssd, const char* space, FLASHCACHE_WRITE_MODE mode,
              FLASHCACHE_VERSION version) {
    FLASHCACHE_CONFIG entry{};
    const std::string uuid = std::string("uuid of ") + section;
    std::string texts[] = {uuid, ssd, section, space};
    entry.SSDUUID = texts[0].data();
    entry.SSDDevPath = texts[1].data();
    entry.SectionName = texts[2].data();
    entry.SpacePath = texts[3].data();
    entry.Policy.WriteMode = mode;
    entry.CacheVersion = version;
    ASSERT_EQ(VEMOFlashCacheConfigSet(&entry), 0);
}

std::string FlushStateOf(const char* ssd) {
    const std::string state = FlushStateFrom(VEMOFlashCacheConfigGet, ssd);
    return state == FlushStateFrom(VEMOFlashCacheConfigTmpGet, ssd) ? state : "differ";
}

void CreateCache(FLASHCACHE_WRITE_MODE mode, const char* ssd, const char* space) {
    FLASHCACHE_CREATE_PARAM param{};
    param.SSDDevPath = ssd;
    param.SpacePath = space;
    param.CacheSizeKB = 16384;
    param.Policy.WriteMode = mode;
    ASSERT_EQ(VEMOFlashCacheCreate(&param, nullptr, 0), 0);
}

}  // namespace appliance

using namespace appliance;

namespace {

constexpr const char* kOtherEntry =
    "[other]\n"
    "\tSSDUUID=  another's \n"
    "\tSSDDevPath = /dev/md9\n"
    "\tFromTheFuture = kept\n"
    "\tFlushState = flushing\n";

}  // namespace

void CacheTest::SetUp() {
    WriteWhole(kConfig, kOtherEntry);
    AddEntry("mine", kSsd, kSpace);
    Forget();
}

// Whatever happened, both files can be read and show what others recorded.
void CacheTest::TearDown() {
    for (const char* path : {kConfig, kConfigCopy}) {
        EXPECT_THAT(ReadWhole(path), testing::HasSubstr(kOtherEntry)) << path;
    }
    EXPECT_EQ(VEMOFlashCacheConfigGet(nullptr, nullptr), 2);
    EXPECT_EQ(VEMOFlashCacheConfigTmpGet(nullptr, nullptr), 2);
}

void CacheTest::Begin(FLASHCACHE_WRITE_MODE mode) {
    CreateCache(mode);
    Forget();
}

void CacheTest::Forget() {
    spy::state() = {};
    VLIBCErrSetEx(0, "", 0);
}

std::vector<std::string> CacheTest::KnobWrites() {
    std::vector<std::string> writes;
    for (const spy::ToolRun& run : spy::state().runs) {
        if (run.program == "/sbin/sysctl" && run.mode.empty()) {
            const std::string& entry = run.arguments.at(0);
            writes.push_back(entry.substr(entry.rfind('.') + 1));
        }
    }
    return writes;
}

void CacheTest::FailKnobWrite(int failing, bool stays) {
    spy::state().answer = [failing, stays](const spy::ToolRun& run) mutable -> std::optional<spy::Answer> {
        if (run.program != "/sbin/sysctl" || !run.mode.empty()) {
            return std::nullopt;
        }
        const int left = failing--;
        return left == 0 || (stays && left < 0) ? std::optional(spy::Answer{255, ""}) : std::nullopt;
    };
}
