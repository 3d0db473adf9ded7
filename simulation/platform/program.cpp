#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "base/pipe.h"
#include "simulation/platform/errors.h"
#include "simulation/platform/whole_file.h"

using namespace vemo::platform;

namespace {

void ThrowOnError(int result) {
    if (result != 0) throw std::bad_alloc();  // these calls fail for want of memory alone
}

// A part of a plan that owns itself: it is released also when the rest of the plan cannot be made.
template <typename Part, int (*Make)(Part*), int (*Release)(Part*)>
class PlanPart {
  public:
    PlanPart() { ThrowOnError(Make(&part_)); }
    PlanPart(const PlanPart&) = delete;
    PlanPart& operator=(const PlanPart&) = delete;
    ~PlanPart() { Release(&part_); }
    Part* Get() { return &part_; }
    const Part* Get() const { return &part_; }

  private:
    Part part_{};
};

using FileActions =
    PlanPart<posix_spawn_file_actions_t, posix_spawn_file_actions_init, posix_spawn_file_actions_destroy>;
using SpawnAttributes = PlanPart<posix_spawnattr_t, posix_spawnattr_init, posix_spawnattr_destroy>;

// What a child gets of our environment: nothing that changes which code it loads or how it reads its input,
// and texts as they are in the C locale, since they are parsed. Which proxy fetches files is the machine's to
// say; the last two are for builds under the sanitizers.
class ChildEnvironment {
  public:
    ChildEnvironment() {
        for (const char* name :
             {"TZ", "http_proxy", "https_proxy", "no_proxy", "ASAN_OPTIONS", "UBSAN_OPTIONS"}) {
            if (const char* value = std::getenv(name)) texts_.push_back(std::string(name) + "=" + value);
        }
        for (std::string& text : texts_) pointers_.push_back(text.data());
        pointers_.push_back(nullptr);
    }
    char* const* Get() { return pointers_.data(); }

  private:
    std::vector<std::string> texts_ = {"PATH=/usr/sbin:/usr/bin:/sbin:/bin", "LC_ALL=C"};
    std::vector<char*> pointers_;
};

// What a child begins with: /dev/null where it has no pipe, nothing else of ours open, signals as the system
// sets them.
class SpawnPlan {
  public:
    // `pipeEnd` becomes the child's descriptor `target`; -1: no pipe.
    explicit SpawnPlan(int pipeEnd = -1, int target = -1) {
        // The pipe first: its number may be one of those that are taken below.
        if (pipeEnd >= 0) ThrowOnError(posix_spawn_file_actions_adddup2(files_.Get(), pipeEnd, target));
        for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
            if (fd == target) continue;
            const int access = fd == STDIN_FILENO ? O_RDONLY : O_WRONLY;
            ThrowOnError(posix_spawn_file_actions_addopen(files_.Get(), fd, "/dev/null", access, 0));
        }
        ThrowOnError(posix_spawn_file_actions_addclosefrom_np(files_.Get(), STDERR_FILENO + 1));
        sigset_t signals;
        sigemptyset(&signals);
        posix_spawnattr_setsigmask(attributes_.Get(), &signals);
        sigfillset(&signals);
        posix_spawnattr_setsigdefault(attributes_.Get(), &signals);
        posix_spawnattr_setflags(attributes_.Get(), POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    }

    // Starts `program`, sought in the system's folders when it names none. False, with errno set, when it
    // cannot be started.
    bool Start(const char* program, char* const* arguments, pid_t& pid) const {
        if (std::strchr(program, '/') != nullptr) return StartFile(program, arguments, pid);
        errno = ENOENT;
        if (*program == '\0') return false;
        for (const std::string_view folder : {"/usr/bin/", "/bin/", "/usr/sbin/", "/sbin/"}) {
            if (StartFile((std::string(folder) + program).c_str(), arguments, pid)) return true;
            if (errno != ENOENT && errno != ENOTDIR && errno != EACCES) return false;
        }
        return false;
    }

  private:
    bool StartFile(const char* file, char* const* arguments, pid_t& pid) const {
        const int error =
            posix_spawn(&pid, file, files_.Get(), attributes_.Get(), arguments, ChildEnvironment().Get());
        if (error != 0) errno = error;
        return error == 0;
    }

    FileActions files_;
    SpawnAttributes attributes_;
};

// The argument vector of `program` from the arguments that follow, closed by a null pointer.
std::vector<char*> ArgumentVector(const char* program, va_list rest) {
    std::vector<char*> arguments;
    for (const char* argument = program; argument != nullptr; argument = va_arg(rest, const char*)) {
        arguments.push_back(const_cast<char*>(argument));  // exec does not write to them
    }
    arguments.push_back(nullptr);
    return arguments;
}

// The child's exit status, 128 + signal when one ended it; -1 when somebody else has waited for it.
int Wait(pid_t pid) {
    int status = 0;
    while (waitpid(pid, &status, 0) < 0) {
        if (errno != EINTR) return Fail(VLIBC_ERR_COMMAND_FAILED);
    }
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

// Which child writes to which of the streams that are open.
class Children {
  public:
    // Never destroyed: streams may be closed by other threads, or handlers, while the process ends.
    static Children& Instance() {
        static auto* const instance = new Children;
        return *instance;
    }
    void Set(FILE* stream, pid_t pid) {
        const std::lock_guard guard(mutex_);
        pids_[stream] = pid;
    }
    // Forgets the stream; its child, or -1.
    pid_t Take(FILE* stream) {
        const std::lock_guard guard(mutex_);
        const auto found = pids_.find(stream);
        if (found == pids_.end()) return -1;
        const pid_t pid = found->second;
        pids_.erase(found);
        return pid;
    }

  private:
    std::mutex mutex_;
    std::unordered_map<FILE*, pid_t> pids_;
};

// Ends a stream that has no child yet.
struct DropStream {
    void operator()(FILE* stream) const {
        const int savedErrno = errno;
        Children::Instance().Take(stream);
        std::fclose(stream);
        errno = savedErrno;
    }
};

int Run(const char* program, va_list rest) {
    const auto arguments = ArgumentVector(program, rest);
    pid_t pid = -1;
    if (!SpawnPlan().Start(program, arguments.data(), pid)) return Fail(VLIBC_ERR_COMMAND_FAILED);
    return Wait(pid);
}

// Starts a program that writes its descriptor `source` to the stream.
FILE* OpenStream(const char* program, int source, va_list rest) {
    const auto arguments = ArgumentVector(program, rest);
    base::Pipe pipe = base::MakePipe();
    if (!pipe.read) return nullptr;
    std::unique_ptr<FILE, DropStream> stream(fdopen(pipe.read.Get(), "r"));
    if (!stream) return nullptr;
    pipe.read.Release();
    Children::Instance().Set(stream.get(), -1);  // what may fail for want of memory, before there is a child
    pid_t pid = -1;
    if (!SpawnPlan(pipe.write.Get(), source).Start(program, arguments.data(), pid)) return nullptr;
    Children::Instance().Set(stream.get(), pid);
    return stream.release();
}

}  // namespace

int VLIBCExecl(const char* program, int option, ...) {
    if (program == nullptr) return Fail(VLIBC_ERR_BAD_PARAMETER);
    va_list rest;
    va_start(rest, option);
    const int result = Guard(-1, [&] { return Run(program, rest); });
    va_end(rest);
    return result;
}

FILE* VLIBCPopen(const char* program, const char* mode, ...) {
    const std::string_view wanted = mode == nullptr ? "" : mode;
    if (program == nullptr || (wanted != "r" && wanted != "rE")) {
        errno = EINVAL;
        Fail(VLIBC_ERR_BAD_PARAMETER);
        return nullptr;
    }
    va_list rest;
    va_start(rest, mode);
    FILE* const stream = Guard(static_cast<FILE*>(nullptr), [&] {
        return OpenStream(program, wanted == "rE" ? STDERR_FILENO : STDOUT_FILENO, rest);
    });
    va_end(rest);
    if (stream == nullptr) Fail(VLIBC_ERR_COMMAND_FAILED);
    return stream;
}

int VLIBCPclose(FILE* stream) {
    const pid_t pid = stream == nullptr ? -1 : Children::Instance().Take(stream);
    if (pid < 0) return Fail(VLIBC_ERR_BAD_PARAMETER);
    std::fclose(stream);  // before the wait: a child that still writes must not wait for a reader
    return Wait(pid);
}
