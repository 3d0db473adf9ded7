#include "fault_injection.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <ctime>
#include <new>
#include <utility>

namespace {

int allocationsLeft = 0;
bool allocationFailed = false;
bool active = false;
int opened = 0;
faults::Plan plan;
std::vector<std::string> calls;

// Whether the call may go through.
bool Pass(const char* name) {
    if (!active) return true;
    calls.emplace_back(name);
    const int number = static_cast<int>(calls.size());
    using faults::Kind;
    if (plan.kind == Kind::kKill && number == plan.atCall) kill(getpid(), SIGKILL);
    const bool hit = (plan.kind == Kind::kFailOnce && number == plan.atCall) ||
                     (plan.kind == Kind::kFailFromThere && number >= plan.atCall);
    if (hit) errno = plan.error;
    return !hit;
}

// The function of that name behind ours, of ours' type.
template <typename Function>
Function* Next(const char* name, Function* /*ours*/) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

void Age(struct stat* status) {
    if (!active) return;
    timespec tick{};
    clock_getres(CLOCK_REALTIME_COARSE, &tick);
    for (timespec* stamp : {&status->st_mtim, &status->st_ctim}) {
        stamp->tv_sec += plan.secondsAhead - (plan.oldFiles ? 60 : 0);
        if (plan.coarseStamps) stamp->tv_nsec -= stamp->tv_nsec % tick.tv_nsec;
    }
}

}  // namespace

namespace faults {

void Begin(const Plan& next) {
    plan = next;
    calls.clear();
    opened = 0;
    active = true;
}

std::vector<std::string> End() {
    active = false;
    return calls;
}

bool FailAllocation(int number) {
    allocationsLeft = number;
    return std::exchange(allocationFailed, false);
}

int Opened() {
    return opened;
}

}  // namespace faults

void* operator new(size_t size) {
    const bool fail = allocationsLeft == 1;
    if (allocationsLeft > 0) --allocationsLeft;
    allocationFailed = allocationFailed || fail;
    void* const memory = fail ? nullptr : std::malloc(size);
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, size_t /*size*/) noexcept {
    std::free(memory);
}

extern "C" {

int openat(int folder, const char* path, int flags, ...) {
    va_list rest;
    va_start(rest, flags);
    const mode_t mode = va_arg(rest, mode_t);
    va_end(rest);
    if (!Pass("openat")) return -1;
    if (active && !plan.nameless && (flags & O_TMPFILE) == O_TMPFILE) {
        errno = EOPNOTSUPP;
        return -1;
    }
    return Next("openat", &openat)(folder, path, flags, mode);
}

int open(const char* path, int flags, ...) {
    va_list rest;
    va_start(rest, flags);
    const mode_t mode = va_arg(rest, mode_t);
    va_end(rest);
    if (active && (flags & (O_ACCMODE | O_DIRECTORY | O_PATH)) == O_RDONLY) ++opened;
    return Next("open", &open)(path, flags, mode);
}

ssize_t write(int fd, const void* bytes, size_t count) {
    if (!Pass("write")) return -1;
    return Next("write", &write)(fd, bytes, active && plan.shortWrites ? std::min<size_t>(count, 7) : count);
}

int fchown(int fd, uid_t user, gid_t group) {
    return Pass("fchown") ? Next("fchown", &fchown)(fd, user, group) : -1;
}

int fchmod(int fd, mode_t mode) {
    return Pass("fchmod") ? Next("fchmod", &fchmod)(fd, mode) : -1;
}

int fsync(int fd) {
    return Pass("fsync") ? Next("fsync", &fsync)(fd) : -1;
}

int linkat(int fromFolder, const char* from, int toFolder, const char* to, int flags) {
    return Pass("linkat") ? Next("linkat", &linkat)(fromFolder, from, toFolder, to, flags) : -1;
}

int renameat(int fromFolder, const char* from, int toFolder, const char* to) {
    return Pass("renameat") ? Next("renameat", &renameat)(fromFolder, from, toFolder, to) : -1;
}

int stat(const char* path, struct stat* status) noexcept {
    const int result = Next("stat", &stat)(path, status);
    Age(status);
    return result;
}

int fstat(int fd, struct stat* status) noexcept {
    const int result = Next("fstat", &fstat)(fd, status);
    Age(status);
    return result;
}

}  // extern "C"
