// sweep-faults: every operation of the library, while the n-th call of each kind fails, once and from then
// on, for n from 1 until the operation no longer notices. Runs on a simulated appliance.
#include <dirent.h>
#include <fcntl.h>
#include <malloc.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <map>
#include <optional>
#include <set>

#include "support/appliance.h"
#include "support/failing_memory.h"
#include "support/on_appliance.h"
#include "sweep/operations.h"

namespace sweep {
namespace {

constexpr const char* kAllocation = "alloc";
constexpr const char* kKinds[] = {kAllocation,
                                  "open",
                                  "write",
                                  "fsync",
                                  "chmod",
                                  "linkat",
                                  "renameat",
                                  "flock",
                                  "VLIBCExecl",
                                  "VLIBCPopen",
                                  "VLIBCPclose",
                                  "VLIBCFileAddSection",
                                  "VLIBCFileEnumSection",
                                  "VLIBCFileGetSection",
                                  "VLIBCFileTouch",
                                  "VLIBCFileSetSection",
                                  "VLIBCFileSetKeyValue",
                                  "VLIBCFileRemoveKey",
                                  "VLIBCFileRemoveSection",
                                  "VLIBCFileLockTimeByFile",
                                  "VLIBCFileUnlockByFile",
                                  "VLIBCStrTok",
                                  "VLIBCStrTrimSpace",
                                  "VLIBCSzHashAlloc",
                                  "VLIBCSzHashSetValue",
                                  "VLIBCSzListAlloc"};
constexpr const char* kLocks[] = {"/run/lock/ssdcache.lock", "/run/lock/ssdcache-apm-flush.lock",
                                  "/var/lock/cache_config_serial_list.lock"};
constexpr const char* kFolders[] = {"/usr/vemo/etc", "/tmp"};
constexpr unsigned kHangSeconds = 30;

struct Options {
    std::string operation;  // empty: all
    std::string kind;
    int number = 0;  // 0: each
    int every = 1;   // of the numbers, each so-manieth: a sample
};

struct Point {
    const Operation& operation;
    std::string kind;
    int number = 0;
    bool stays = false;
};

std::string CommandOf(const Point& point) {
    return "./dev sweep faults --operation " + point.operation.name + " --kind " + point.kind + " --n " +
           std::to_string(point.number) + (point.stays ? "  (and all after it)" : "");
}

std::set<std::string> Entries(const std::string& folder) {
    std::set<std::string> names;
    DIR* const dir = opendir(folder.c_str());
    while (const dirent* entry = dir == nullptr ? nullptr : readdir(dir)) {
        names.insert(entry->d_name);
    }
    if (dir != nullptr) {
        closedir(dir);
    }
    return names;
}

std::size_t OpenDescriptors() {
    return Entries("/proc/self/fd").size();
}

void Arm(const Point& point) {
    if (point.kind == kAllocation) {
        memory::plan = {.allocation = point.number, .stays = point.stays};
    } else {
        spy::state().faults[point.kind] = {.call = point.number, .stays = point.stays};
    }
}

// How many calls have failed; nothing fails any more.
int Disarm(const Point& point) {
    if (point.kind == kAllocation) {
        return std::exchange(memory::plan, {}).failed;
    }
    const int fired = spy::state().faults[point.kind].fired;
    spy::state() = {};
    return fired;
}

// A lock whose unlocking failed stays with its descriptor: that is what callers are told.
bool MayKeepLock(const Point& point) {
    return point.kind == "flock" || point.kind == "VLIBCFileUnlockByFile";
}

std::string Judge(const Operation& operation, const Result& result) {
    if (std::ranges::find(operation.documented, result.value) == operation.documented.end()) {
        return "the result " + std::to_string(result.value) + " is none that is documented";
    }
    return result.complaint;
}

// One call with the fault; what is wrong, or nothing, and whether the fault was met at all.
std::pair<std::string, bool> Call(const Point& point) {
    Arm(point);
    const Result result = point.operation.call();
    const bool isMet = Disarm(point) > 0;
    return {Judge(point.operation, result), isMet};
}

// What is kept for the first time, such as a buffer of the C library's, is no leak, nor what a block that is
// used again has too much: memory must grow with each call.
bool Leaks(const Point& point) {
    std::size_t used = 0;
    for (int call = 0; call < 4; ++call) {
        Call(point);
        spy::state() = {};
        const std::size_t now = mallinfo2().uordblks;
        if (call > 0 && now <= used) {
            return false;
        }
        used = now;
    }
    return true;
}

// Exit codes: 0 met and well, 1 something is wrong and told, 2 the fault was not met.
int Try(const Point& point) {
    alarm(kHangSeconds);
    const std::size_t before = OpenDescriptors();
    auto [wrong, isMet] = Call(point);
    if (wrong.empty() && !MayKeepLock(point) && OpenDescriptors() != before) {
        wrong = "descriptors are left open";
    }
    if (wrong.empty() && (waitpid(-1, nullptr, WNOHANG) >= 0 || errno != ECHILD)) {
        wrong = "a child is left";
    }
    if (wrong.empty() && isMet && !point.operation.changesCaches && !MayKeepLock(point) && Leaks(point)) {
        wrong = "memory is lost";
    }
    if (!wrong.empty()) {
        std::cout << "finding: " << CommandOf(point) << ": " << wrong << std::endl;
        return 1;
    }
    return isMet ? 0 : 2;
}

// The files hold what they held, or what the operation makes of them, and nothing beside.
class Files {
  public:
    Files() {
        for (const char* folder : kFolders) {
            names_[folder] = Entries(folder);
        }
        for (const char* file : kKept) {
            texts_[file] = ReadWhole(file);
        }
    }
    void Restore() const {
        for (const auto& [file, text] : texts_) {
            WriteWhole(file, text);
        }
    }
    [[nodiscard]] std::string Wrong(const Operation& operation) const {
        for (const auto& [folder, names] : names_) {
            for (const std::string& name : Entries(folder)) {
                // A power cut may leave one; a fault must not.
                if (!names.contains(name) &&
                    (name.find("XXXX") != std::string::npos || name.ends_with(".tmp"))) {
                    return folder + "/" + name + " is left";
                }
            }
        }
        if (operation.name != "ConfigGet" && VEMOFlashCacheConfigGet(nullptr, nullptr) < 0) {
            return "the configuration cannot be read any more";
        }
        for (const char* file : {appliance::kConfig, appliance::kConfigCopy}) {
            if (ReadWhole(file).find("/dev/vg1/volume_8") == std::string::npos) {
                return std::string(file) + " has lost another cache's entry";
            }
        }
        return "";
    }

  private:
    static constexpr const char* kKept[] = {appliance::kConfig, appliance::kConfigCopy,
                                            "/usr/vemo/etc/flashcache_ssd_sn_list.conf"};
    std::map<std::string, std::set<std::string>> names_;
    std::map<std::string, std::string> texts_;
};

std::string HeldLock() {
    for (const char* path : kLocks) {
        const int fd = open(path, O_RDWR | O_CLOEXEC);
        const bool isHeld = fd >= 0 && flock(fd, LOCK_EX | LOCK_NB) != 0;
        if (fd >= 0) {
            close(fd);
        }
        if (isHeld) {
            return std::string(path) + " is still held";
        }
    }
    return "";
}

struct Tally {
    std::map<std::string, int> points;  // tried, by kind
    int findings = 0;
};

// Whether a further number makes sense.
bool TryPoint(const Point& point, const Files& files, Tally& tally) {
    if (point.operation.prepare) {
        point.operation.prepare();
    }
    spy::state() = {};
    files.Restore();
    std::cout.flush();
    const pid_t child = fork();
    if (child == 0) {
        _exit(Try(point));
    }
    int status = 0;
    waitpid(child, &status, 0);
    if (WIFEXITED(status) && WEXITSTATUS(status) == 2) {
        return false;
    }
    ++tally.points[point.kind];
    std::string wrong;
    if (WIFSIGNALED(status)) {
        wrong = WTERMSIG(status) == SIGALRM ? "it hangs"
                                            : "it crashes: " + std::string(strsignal(WTERMSIG(status)));
    } else if (WEXITSTATUS(status) == 0) {
        wrong = MayKeepLock(point) ? "" : HeldLock();
        wrong = wrong.empty() ? files.Wrong(point.operation) : wrong;
    }
    if (!wrong.empty()) {
        std::cout << "finding: " << CommandOf(point) << ": " << wrong << std::endl;
    }
    tally.findings += wrong.empty() && WIFEXITED(status) && WEXITSTATUS(status) == 0 ? 0 : 1;
    return true;
}

void SweepKind(const Operation& operation, const std::string& kind, const Options& options,
               const Files& files, Tally& tally) {
    for (const bool stays : {false, true}) {
        for (int n = std::max(options.number, 1);; n += options.every) {
            if (!TryPoint({operation, kind, n, stays}, files, tally)) {
                if (n == 1) {
                    return;  // it makes no such call at all
                }
                break;
            }
            if (options.number > 0) {
                break;
            }
        }
    }
}

std::optional<Options> Parse(int argc, char** argv) {
    Options options;
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string name = argv[i];
        const std::string value = argv[i + 1];
        if (name == "--operation") {
            options.operation = value;
        } else if (name == "--kind") {
            options.kind = value;
        } else if (name == "--n") {
            options.number = std::atoi(value.c_str());
        } else if (name == "--every") {
            options.every = std::max(std::atoi(value.c_str()), 1);
        } else {
            return std::nullopt;
        }
    }
    return argc % 2 == 1 ? std::optional(options) : std::nullopt;
}

int Sweep(const Options& options) {
    if (!IsOnAppliance()) {
        std::cerr << "sweep-faults runs on a simulated appliance alone: ./dev sweep faults\n";
        return 2;
    }
    PrepareAppliance();
    const Files files;
    // What is done once in a process is done before anything fails.
    for (const Operation& operation : Operations()) {
        if (!operation.changesCaches) {
            operation.call();
            files.Restore();
        }
    }
    spy::state() = {};
    Tally tally;
    for (const Operation& operation : Operations()) {
        if (!options.operation.empty() && operation.name != options.operation) {
            continue;
        }
        for (const char* kind : kKinds) {
            if (options.kind.empty() || options.kind == kind) {
                SweepKind(operation, kind, options, files, tally);
            }
        }
    }
    int all = 0;
    for (const auto& [kind, points] : tally.points) {
        std::cout << kind << ": " << points << " points\n";
        all += points;
    }
    std::cout << all << " points tried, " << tally.findings << " findings\n";
    return tally.findings == 0 && all > 0 ? 0 : 1;
}

}  // namespace
}  // namespace sweep

// The C library's own stores of freed memory count as used: without them its numbers are exact.
void RequireExactMemory(char** argv) {
    constexpr const char* kTunables = "glibc.malloc.tcache_count=0:glibc.malloc.mxfast=0";
    const char* const set = std::getenv("GLIBC_TUNABLES");
    if (set == nullptr || std::string_view(set) != kTunables) {
        setenv("GLIBC_TUNABLES", kTunables, 1);
        execv("/proc/self/exe", argv);
    }
}

int main(int argc, char** argv) {
    RequireExactMemory(argv);
    const auto options = sweep::Parse(argc, argv);
    if (!options) {
        std::cerr << "usage: sweep-faults [--operation NAME] [--kind KIND] [--n NUMBER] [--every STEP]\n";
        return 2;
    }
    return sweep::Sweep(*options);
}
