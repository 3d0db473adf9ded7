// Every operation while the n-th call of each kind fails, once and from then on, for n from 1 until the
// operation no longer notices.
#include <fcntl.h>
#include <malloc.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <map>
#include <optional>

#include "support/appliance.h"
#include "support/failing_memory.h"
#include "sweep/sweep.h"
#include "sweep/tracer.h"

namespace sweep {
namespace {

constexpr const char* kAllocation = "alloc";
constexpr const char* kCalls[] = {"open",
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
// System calls that are made where no function of ours can stand between, such as inside the C library.
struct SystemCall {
    const char* kind;
    std::vector<long> numbers;
    int error;
};
const std::vector<SystemCall> kSystemCalls = {{"read", {SYS_read, SYS_pread64}, EIO},
                                              {"stat", {SYS_newfstatat, SYS_fstat, SYS_statx}, EIO},
                                              {"readdir", {SYS_getdents64}, EIO},
                                              {"seek", {SYS_lseek}, EIO},
                                              {"fork", {SYS_clone, SYS_clone3, SYS_vfork}, EAGAIN},
                                              {"wait", {SYS_wait4, SYS_waitid}, ECHILD},
                                              {"pipe", {SYS_pipe2}, EMFILE},
                                              {"quota", {SYS_write, SYS_pwrite64}, EDQUOT}};
constexpr unsigned kLongestCall = 30;

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

// Asks for each, as a look into /proc would make calls that are to fail.
std::size_t OpenDescriptors() {
    constexpr int kMost = 256;
    std::size_t open = 0;
    for (int fd = 0; fd < kMost; ++fd) {
        open += fcntl(fd, F_GETFD) >= 0 ? 1 : 0;
    }
    return open;
}

const SystemCall* SystemCallOf(const Point& point) {
    const auto found = std::ranges::find(kSystemCalls, point.kind, &SystemCall::kind);
    return found == kSystemCalls.end() ? nullptr : &*found;
}

void Arm(const Point& point) {
    if (SystemCallOf(point) != nullptr) {
        return;  // which is the tracer's work
    }
    if (point.kind == kAllocation) {
        memory::plan = {.allocation = point.number, .stays = point.stays};
    } else {
        spy::state().faults[point.kind] = {.call = point.number, .stays = point.stays};
    }
}

// How many calls have failed; nothing fails any more.
int Disarm(const Point& point) {
    if (SystemCallOf(point) != nullptr) {
        return 0;
    }
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

// The C library's glob takes a folder that cannot be read to its end for one with fewer entries.
bool MayMissDevices(const Point& point) {
    return point.kind == "readdir" && point.operation.name == "StatGet";
}

std::string Judge(const Point& point, const Result& result) {
    const Operation& operation = point.operation;
    if (MayMissDevices(point) && result.value == 0) {
        return "";
    }
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
    return {Judge(point, result), isMet};
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

// Of a child whose end cannot be learned nothing more can be done.
bool MayLeaveChild(const Point& point) {
    return point.kind == "wait";
}

// Exit codes: 0 met and well, 1 something is wrong and told, 2 the fault was not met as far as we can tell.
int Try(const Point& point) {
    alarm(kLongestCall);
    const std::size_t before = OpenDescriptors();
    auto [wrong, isMet] = Call(point);
    if (wrong.empty() && !MayKeepLock(point) && OpenDescriptors() != before) {
        wrong = "descriptors are left open";
    }
    if (wrong.empty() && !MayLeaveChild(point) && (waitpid(-1, nullptr, WNOHANG) >= 0 || errno != ECHILD)) {
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

void Begin(const Operation& operation, const Files& files) {
    files.Restore();
    if (operation.prepare) {
        operation.prepare();
    }
    spy::state() = {};
}

// How the process ended that tried it, and whether the fault was met.
std::pair<int, bool> RunPoint(const Point& point) {
    if (const SystemCall* const call = SystemCallOf(point)) {
        const Traced traced = RunTraced(
            [&] { return Try(point); },
            {.call = point.number, .of = call->numbers, .error = call->error, .stays = point.stays});
        return {traced.status, traced.isMet};
    }
    std::cout.flush();
    const pid_t child = fork();
    if (child == 0) {
        _exit(Try(point));
    }
    int status = 0;
    waitpid(child, &status, 0);
    return {status, WIFEXITED(status) && WEXITSTATUS(status) != 2};
}

// Whether a further number makes sense.
bool TryPoint(const Point& point, const Files& files, Tally& tally) {
    Begin(point.operation, files);
    const auto [status, isMet] = RunPoint(point);
    if (!isMet && WIFEXITED(status) && WEXITSTATUS(status) != 1) {
        return false;
    }
    ++tally.points[point.kind];
    std::string wrong;
    if (WIFSIGNALED(status)) {
        wrong = WTERMSIG(status) == SIGALRM ? "it hangs"
                                            : "it crashes: " + std::string(strsignal(WTERMSIG(status)));
    } else if (WEXITSTATUS(status) != 1) {
        wrong = MayKeepLock(point) ? "" : HeldLock();
        wrong = wrong.empty() ? files.Wrong(point.operation) : wrong;
        const auto left = files.Leftovers();  // a power cut may leave one; a fault must not
        wrong = wrong.empty() && !left.empty() ? *left.begin() + " is left" : wrong;
    }
    if (!wrong.empty()) {
        std::cout << "finding: " << CommandOf(point) << ": " << wrong << std::endl;
    }
    tally.findings += wrong.empty() && WIFEXITED(status) && WEXITSTATUS(status) != 1 ? 0 : 1;
    return isMet;
}

// How often an operation makes the calls of each kind when nothing fails.
std::map<std::string, int> CallsOf(const Operation& operation, const Files& files) {
    constexpr int kNever = 1 << 30;
    std::map<std::string, int> calls;
    Begin(operation, files);
    memory::plan = {.allocation = kNever};
    for (const char* kind : kCalls) {
        spy::state().faults[kind].call = kNever;
    }
    operation.call();
    calls[kAllocation] = kNever - std::exchange(memory::plan, {}).allocation;
    for (const char* kind : kCalls) {
        calls[kind] = kNever - spy::state().faults[kind].call;
    }
    Begin(operation, files);
    const Traced traced = RunTraced([&] { return operation.call().value == 0 ? 0 : 1; }, {});
    for (const SystemCall& call : kSystemCalls) {
        for (const long number : call.numbers) {
            const auto made = traced.calls.find(number);
            calls[call.kind] += made == traced.calls.end() ? 0 : made->second;
        }
    }
    return calls;
}

void SweepOperation(const Operation& operation, const Options& options, const Files& files, Places& places,
                    Tally& tally) {
    const auto calls = CallsOf(operation, files);
    for (const auto& [kind, made] : calls) {
        if (made == 0 || !IsWanted(options.kind, kind)) {
            continue;
        }
        for (const bool stays : {false, true}) {
            places.ForEach([&](int n) { return TryPoint({operation, kind, n, stays}, files, tally); }, made);
        }
    }
}

// What is done once in a process is done before anything fails.
void WarmUp(const Files& files) {
    for (const Operation& operation : Operations()) {
        if (!operation.changesCaches) {
            operation.call();
            files.Restore();
        }
    }
    spy::state() = {};
}

}  // namespace

Tally SweepFaults(const Options& options, const Files& files) {
    WarmUp(files);
    Places places(options);
    Tally tally;
    for (const Operation& operation : Operations()) {
        if (IsWanted(options.operation, operation.name)) {
            SweepOperation(operation, options, files, places, tally);
        }
    }
    return tally;
}

}  // namespace sweep
