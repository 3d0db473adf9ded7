// load: processes of many threads mix reads, writes, status and flush-state changes on one simulated
// appliance. No update is lost, no reader sees half of one, nothing is left open or running, and memory stays
// flat.
#include <dirent.h>
#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <mutex>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "platform/vemocore.h"
#include "support/on_appliance.h"
#include "vemoflashcache.h"

namespace {

constexpr const char* kSsd = "/dev/md3";
constexpr const char* kSpace = "/dev/vg1/volume_1";
constexpr std::uint64_t kCacheBytes = 16 << 20;
using Clock = std::chrono::steady_clock;

struct Options {
    int processes = 16;
    int threads = 8;
    int rounds = 0;  // of each thread; 0: as many as the seconds allow
    int seconds = 60;
};

// What all threads of a process share: what they found wrong, and how much they did.
class Tally {
  public:
    void Done() { ++calls_; }
    void Refused() { ++refused_; }
    void Expect(bool holds, const std::string& what) {
        if (!holds) {
            const std::lock_guard guard(lock_);
            std::cout << "finding: " << what << std::endl;
            ++findings_;
        }
    }
    [[nodiscard]] int Calls() const { return calls_; }
    [[nodiscard]] int Refusals() const { return refused_; }
    [[nodiscard]] int Findings() const { return findings_; }

  private:
    std::mutex lock_;
    std::atomic<int> calls_ = 0;
    std::atomic<int> refused_ = 0;
    std::atomic<int> findings_ = 0;
};

// An entry tells in two places which change of it is the last: who sees them differ sees half a change.
std::string UuidOf(const std::string& section, int change) {
    return section + "-" + std::to_string(change);
}

using Entries = std::unique_ptr<FLASHCACHE_CONFIG, decltype(&VEMOFlashCacheConfigFree)>;

class Worker {
  public:
    Worker(std::string name, Tally& tally)
        : name_(std::move(name)), tally_(tally), random_(std::hash<std::string>()(name_)) {}

    void Step() {
        static constexpr void (Worker::* kActs[])() = {
            &Worker::WriteOwn,  &Worker::ReadOwn,   &Worker::ReadAll,
            &Worker::ReadAll,   &Worker::Describe,  &Worker::Count,
            &Worker::ReadKnobs, &Worker::SetStates, &Worker::WriteSerials};
        (this->*kActs[random_() % std::size(kActs)])();
        tally_.Done();
    }

    void Finish() {
        WriteOwn();
        ReadOwn();
    }

  private:
    // Busy for longer than the library waits for its lock: refused, and nothing has changed.
    bool IsDone(int result) {
        if (result < 0) {
            tally_.Refused();
        }
        return result >= 0;
    }

    void WriteOwn() {
        std::string uuid = UuidOf(name_, change_ + 1);
        std::string ssd = "/dev/of/" + name_;
        FLASHCACHE_CONFIG entry{};
        entry.SectionName = name_.data();
        entry.SSDUUID = uuid.data();
        entry.SSDDevPath = ssd.data();
        entry.Policy.DelaySeconds = change_ + 1;
        change_ += IsDone(VEMOFlashCacheConfigSet(&entry)) ? 1 : 0;
    }

    void ReadOwn() {
        if (change_ == 0) {
            return;
        }
        FLASHCACHE_CONFIG_SEARCH search{};
        search.type = FLASHCACHE_SEARCH_BY_SECTION;
        search.SectionName = name_.c_str();
        FLASHCACHE_CONFIG* list = nullptr;
        const int count = VEMOFlashCacheConfigGet(&search, &list);
        const Entries entries(list, VEMOFlashCacheConfigFree);
        if (IsDone(count)) {
            tally_.Expect(count == 1 && list->Policy.DelaySeconds == change_,
                          name_ + " has lost change " + std::to_string(change_));
        }
    }

    void ReadAll() {
        FLASHCACHE_CONFIG* list = nullptr;
        const auto read = random_() % 2 == 0 ? VEMOFlashCacheConfigGet : VEMOFlashCacheConfigTmpGet;
        const int count = read(nullptr, &list);
        const Entries entries(list, VEMOFlashCacheConfigFree);
        if (!IsDone(count)) {
            return;
        }
        for (const FLASHCACHE_CONFIG* entry = list; entry != nullptr; entry = entry->Next) {
            const std::string section = entry->SectionName;
            tally_.Expect(
                !section.starts_with("own") || UuidOf(section, entry->Policy.DelaySeconds) == entry->SSDUUID,
                "half a change of " + section + " is read");
        }
    }

    void Describe() {
        FLASHCACHE_STAT* list = nullptr;
        const int count = VEMOFlashCacheStatGet(nullptr, &list);
        tally_.Expect(count == 1 && list->CountStat.Reads >= 0, "the cache cannot be described");
        VEMOFlashCacheStatFree(&list);
    }

    void Count() {
        uint64_t bytes = 0;
        tally_.Expect(VEMOFlashCacheCacheSizeGet(nullptr, &bytes) == 0 && bytes == kCacheBytes,
                      "the caches have another size");
    }

    void ReadKnobs() {
        std::int32_t value = -1;
        tally_.Expect(VEMOFlashCacheSysctlGet(FLASHCACHE_SYSCTL_CACHE_ALL, kSsd, kSpace, &value) == 0 &&
                          (value == 0 || value == 1),
                      "a knob reads " + std::to_string(value));
    }

    // Several change one cache at once: each knob of it has a value that somebody wrote.
    void SetStates() {
        tally_.Expect((random_() % 2 == 0 ? SetFlushState : SetNormalState)(kSsd, kSpace) == 0,
                      "a handle state cannot be set");
    }

    void WriteSerials() {
        const std::string serials = name_ + std::to_string(++serial_);
        if (!IsDone(VEMOFlashcacheConfigSerialListSet(name_.c_str(), serials.c_str()))) {
            return;
        }
        VLIBC_SZLIST* list = nullptr;
        tally_.Expect(VEMOFlashcacheConfigSerialListGet(name_.c_str(), &list) == 1 &&
                          std::string(VLIBCSzListGet(list, 0)) == serials,
                      name_ + " has lost its serial numbers");
        VLIBCSzListFree(list);
    }

    std::string name_;
    Tally& tally_;
    std::minstd_rand random_;
    int change_ = 0;
    int serial_ = 0;
};

std::size_t OpenDescriptors() {
    std::size_t open = 0;
    const std::unique_ptr<DIR, decltype(&closedir)> folder(opendir("/proc/self/fd"), closedir);
    while (folder && readdir(folder.get()) != nullptr) {
        ++open;
    }
    return open;
}

void RunThreads(int process, const Options& options, Tally& tally, Clock::time_point end) {
    std::vector<std::thread> threads;
    for (int thread = 0; thread < options.threads; ++thread) {
        threads.emplace_back([=, &options, &tally] {
            Worker worker("own-" + std::to_string(process) + "-" + std::to_string(thread), tally);
            for (int round = 0; options.rounds > 0 ? round < options.rounds : Clock::now() < end; ++round) {
                worker.Step();
            }
            worker.Finish();
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

// Twice the same work: what the first time leaves is kept for good reasons, what the second adds is lost.
int RunProcess(int process, const Options& options) {
    constexpr std::size_t kNoise = 64 * 1024;  // what the arenas of new threads differ in
    Tally tally;
    const std::size_t descriptors = OpenDescriptors();
    const auto half = std::chrono::seconds(options.seconds) / 2;
    RunThreads(process, options, tally, Clock::now() + half);
    const std::size_t used = mallinfo2().uordblks;
    RunThreads(process, options, tally, Clock::now() + half);
    tally.Expect(OpenDescriptors() == descriptors, "descriptors are left open");
    tally.Expect(waitpid(-1, nullptr, WNOHANG) < 0, "a child is left");
    tally.Expect(mallinfo2().uordblks < used + kNoise,
                 "memory grew from " + std::to_string(used) + " to " + std::to_string(mallinfo2().uordblks));
    std::cout << tally.Calls() << " calls, " << tally.Refusals() << " refused while the lock was busy"
              << std::endl;
    return tally.Findings() == 0 && tally.Calls() > 0 ? 0 : 1;
}

bool CreateCache() {
    FLASHCACHE_CREATE_PARAM param{};
    param.SSDDevPath = kSsd;
    param.SpacePath = kSpace;
    param.CacheSizeKB = kCacheBytes / 1024;
    param.Policy.WriteMode = FLASHCACHE_WRITE_BACK;
    return VEMOFlashCacheCreate(&param, nullptr, 0) == 0;
}

std::optional<Options> Parse(int argc, char** argv) {
    Options options;
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string_view name = argv[i];
        int* const value = name == "--processes" ? &options.processes
                           : name == "--threads" ? &options.threads
                           : name == "--rounds"  ? &options.rounds
                           : name == "--seconds" ? &options.seconds
                                                 : nullptr;
        if (value == nullptr || (*value = std::atoi(argv[i + 1])) <= 0) {
            return std::nullopt;
        }
    }
    return argc % 2 == 1 ? std::optional(options) : std::nullopt;
}

}  // namespace

int main(int argc, char** argv) {
    const auto options = Parse(argc, argv);
    if (!options) {
        std::cerr << "usage: load [--processes N] [--threads N] [--rounds N | --seconds N]\n";
        return 2;
    }
    if (!IsOnAppliance()) {
        std::cerr << "load runs on a simulated appliance alone: ./dev sweep load\n";
        return 2;
    }
    if (!CreateCache()) {
        std::cerr << "no cache can be created\n";
        return 1;
    }
    for (int process = 0; process < options->processes; ++process) {
        if (fork() == 0) {
            _exit(RunProcess(process, *options));
        }
    }
    int failed = 0;
    for (int status = 0; waitpid(-1, &status, 0) > 0;) {
        failed += status == 0 ? 0 : 1;
    }
    std::cout << options->processes << " processes, " << failed << " failed\n";
    return failed == 0 ? 0 : 1;
}
