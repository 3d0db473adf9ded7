// Every command of the tool that changes a cache, while the tool or a program that it runs is killed at its
// n-th step. Afterwards `list` tells the truth, the same command comes to its end, and no byte is lost.
#include <fcntl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <iostream>
#include <vector>

#include "cli/json.h"
#include "support/appliance.h"
#include "sweep/sweep.h"
#include "sweep/tracer.h"

namespace sweep {
namespace {

using appliance::kCache;
using appliance::kSpace;
using appliance::kSsd;
using Words = std::vector<std::string>;

constexpr int kDirtyBlocks = 8;
constexpr const char* kWords = "/tmp/words-of-the-tool";  // what it last said to its admin
constexpr const char* kName = "md3+volume_1";

// Where the world outside a process can see a difference: programs are started, files and devices changed.
const std::vector<long>& Steps() {
    static const std::vector<long> steps = {
        SYS_clone,    SYS_clone3, SYS_vfork,    SYS_execve, SYS_wait4,     SYS_write,
        SYS_pwrite64, SYS_rename, SYS_renameat, SYS_linkat, SYS_renameat2, SYS_unlink,
        SYS_unlinkat, SYS_fsync,  SYS_flock,    SYS_fchmod, SYS_ioctl,     SYS_sendto,
        SYS_mkdir,    SYS_rmdir,  SYS_mount,    SYS_umount2};
    return steps;
}

// What a command leads to.
struct Goal {
    bool isUp = true;
    bool isConfigured = true;
    bool isClean = false;
};

struct Command {
    std::string name;
    Words words;
    void (*prepare)();
    Goal goal;
};

[[noreturn]] void Become(const Words& words) {
    const int null = open("/dev/null", O_RDWR);
    dup2(null, STDIN_FILENO);
    dup2(null, STDOUT_FILENO);
    dup2(open(kWords, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600), STDERR_FILENO);
    std::vector<char*> arguments;
    for (const std::string& word : words) {
        arguments.push_back(const_cast<char*>(word.c_str()));
    }
    arguments.push_back(nullptr);
    execvp(arguments[0], arguments.data());
    _exit(127);
}

int RunQuietly(const Words& words) {
    std::cout.flush();
    const pid_t child = fork();
    if (child == 0) {
        alarm(60);
        Become(words);
    }
    return appliance::Wait(child);
}

bool IsUp() {
    return access(kCache, F_OK) == 0;
}

bool IsConfigured() {
    return ReadWhole(appliance::kConfig).find(kSpace) != std::string::npos;
}

void Nothing() {
    if (IsUp()) {
        appliance::RunProgram({"dmsetup", "remove", "cachedev_0"});
    }
    WriteWhole(appliance::kConfig, "");
    WriteWhole(appliance::kConfigCopy, "");
    appliance::RunProgram(
        {"dd", "if=/dev/zero", "of=/dev/md3", "bs=4k", "count=16", "conv=notrunc", "status=none"});
}

void Running() {
    Nothing();
    RunQuietly({"vemocachectl", "create", kSsd, kSpace, "--size", "16M", "--discard-content"});
    appliance::WriteBlocks(kCache, kDirtyBlocks);
}

void Unloaded() {
    Running();
    RunQuietly({"vemocachectl", "unload", "cachedev_0"});
}

void Outgrown() {
    static int megabytes = 2048;
    Running();
    appliance::RunProgram({"vemo-appliance", "grow", kSpace, std::to_string(++megabytes) + "M"});
}

const std::vector<Command>& Commands() {
    static const std::vector<Command> commands = {
        {"create", {"create", kSsd, kSpace, "--size", "16M", "--discard-content"}, Nothing, {}},
        {"load", {"load", kName}, Unloaded, {}},
        {"unload", {"unload", kName}, Running, {.isUp = false}},
        {"flush", {"flush", kName}, Running, {.isClean = true}},
        {"delete", {"delete", kName}, Running, {.isUp = false, .isConfigured = false, .isClean = true}},
        {"expand", {"expand", kName}, Outgrown, {}}};
    return commands;
}

Words Tool(const Words& words) {
    Words all = {"vemocachectl"};
    all.insert(all.end(), words.begin(), words.end());
    return all;
}

// What the tool tells of the caches.
tests::Json Told() {
    constexpr const char* kAnswer = "/tmp/answer-of-the-tool";
    appliance::RunProgram(
        {"bash", "-c", std::string("vemocachectl list --json >") + kAnswer + " 2>/dev/null"});
    return tests::Json::Parse(ReadWhole(kAnswer));
}

std::string WhatIsUntrue() {
    const tests::Json caches = Told()["caches"];
    if (caches.empty() != (!IsUp() && !IsConfigured())) {
        return "list tells of " + std::to_string(caches.size()) + " caches";
    }
    const bool isToldUp = std::string(caches[0]["device"]) == kCache;
    if (isToldUp != IsUp()) {
        return "list tells the state " + std::string(caches[0]["state"]);
    }
    const auto dirty = IsUp() ? std::to_string(appliance::DirtyBlocks() * 65536) : "";
    const std::string told(caches[0]["dirty_bytes"]);
    return IsUp() && told != dirty ? "list tells of " + told + " dirty bytes of " + dirty : "";
}

// Where the data are to be found by whoever uses the volume.
std::string WhatIsLost(const Command& command) {
    if (command.prepare == Nothing) {
        return "";
    }
    if (command.goal.isConfigured && !IsUp() && RunQuietly(Tool({"load", kName})) != 0) {
        return "the cache cannot be loaded afterwards";
    }
    const char* const device = IsUp() ? kCache : kSpace;
    return appliance::HoldsBlocks(device, kDirtyBlocks) ? "" : "what was written is lost";
}

std::string WhatIsMissed(const Command& command) {
    const int code = RunQuietly(Tool(command.words));
    const Goal& goal = command.goal;
    const bool isReached = IsUp() == goal.isUp && IsConfigured() == goal.isConfigured &&
                           (!goal.isClean || !IsUp() || appliance::DirtyBlocks() == 0);
    if (!isReached) {
        return "repeated, with exit code " + std::to_string(code) +
               ", it does not come to its end: " + ReadWhole(kWords);
    }
    const std::string problem = IsConfigured() ? std::string(Told()["caches"][0]["problem"]) : "null";
    return goal.isUp && problem != "null" ? "repeated, it leaves a problem: " + problem : "";
}

std::string Wrong(const Command& command, const Traced& traced, const Files& files) {
    if (traced.isHung) {
        return "it hangs";
    }
    if (VEMOFlashCacheConfigGet(nullptr, nullptr) < 0 || VEMOFlashCacheConfigTmpGet(nullptr, nullptr) < 0) {
        return "the configuration cannot be read any more";
    }
    std::string wrong = HeldLock();
    wrong = wrong.empty() ? WhatIsUntrue() : wrong;
    wrong = wrong.empty() ? WhatIsMissed(command) : wrong;
    wrong = wrong.empty() ? WhatIsLost(command) : wrong;
    const auto left = files.Leftovers();
    return wrong.empty() && !left.empty() ? *left.begin() + " is left" : wrong;
}

bool KillOnce(const Command& command, Victim victim, int number, const Files& files, Tally& tally) {
    command.prepare();
    const Harm kill{.victim = victim, .call = number, .of = Steps()};
    const Traced traced = RunTraced([&]() -> int { Become(Tool(command.words)); }, kill);
    if (!traced.isMet) {
        return false;
    }
    ++tally.points[command.name];
    if (const std::string wrong = Wrong(command, traced, files); !wrong.empty()) {
        ++tally.findings;
        std::cout << "finding: ./dev sweep tool --operation " << command.name << " --kind "
                  << (victim == Victim::kCaller ? "caller" : "child") << " --n " << number << ": " << wrong
                  << std::endl;
    }
    return true;
}

}  // namespace

Tally SweepToolKills(const Options& options, const Files& files) {
    Tally tally;
    Places places(options);
    for (const Command& command : Commands()) {
        for (const auto& [victim, kind] :
             {std::pair(Victim::kCaller, "caller"), std::pair(Victim::kChild, "child")}) {
            if (IsWanted(options.operation, command.name) && IsWanted(options.kind, kind)) {
                places.ForEach([&](int n) { return KillOnce(command, victim, n, files, tally); });
            }
        }
    }
    return tally;
}

}  // namespace sweep
