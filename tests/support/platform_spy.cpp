#include "support/platform_spy.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <type_traits>

#include "platform/vemocore.h"
#include "platform/vemosdk.h"
#include "platform/vemosysnotify.h"
#include "support/failing_memory.h"

namespace spy {
namespace {

// The function that the test program's own definition hides.
template <class Function>
Function* Real(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

// Whether this call of the function is to fail; it leaves the error that the fault asks for.
bool Fails(const char* name) {
    const auto found = state().faults.find(name);
    if (found == state().faults.end()) {
        return false;
    }
    State::Fault& fault = found->second;
    if (fault.call != 1) {
        fault.call -= fault.call > 1 ? 1 : 0;
        return false;
    }
    fault.call = fault.stays ? 1 : 0;
    ++fault.fired;
    if (fault.kills) {
        raise(SIGKILL);
    }
    if (name[0] != 'V') {
        errno = fault.error == 0 ? EIO : fault.error;
    } else if (fault.error != 0) {
        VLIBCErrSetEx(fault.error, "spy", 1);
    }
    return true;
}

// The call as it is, or `failure` where a fault is set.
template <class Function, class... Arguments>
auto PassOn(const char* name, std::invoke_result_t<Function, Arguments...> failure, Arguments... arguments) {
    return Fails(name) ? failure : Real<Function>(name)(arguments...);
}

std::vector<std::string> Collect(va_list arguments) {
    std::vector<std::string> collected;
    while (const char* argument = va_arg(arguments, const char*)) {
        collected.emplace_back(argument);
    }
    return collected;
}

std::optional<Answer> Decide(const ToolRun& run) {
    state().runs.push_back(run);
    return state().answer ? state().answer(run) : std::nullopt;
}

// Argument `index` of a run for the real variadic function; NULL ends the list there.
const char* At(const ToolRun& run, std::size_t index) {
    return index < run.arguments.size() ? run.arguments[index].c_str() : nullptr;
}

std::map<std::FILE*, int>& AnswerStatus() {
    static std::map<std::FILE*, int> statuses;
    return statuses;
}

std::FILE* StreamOf(const Answer& answer) {
    std::FILE* stream = std::tmpfile();
    std::fwrite(answer.output.data(), 1, answer.output.size(), stream);
    std::fseek(stream, 0, SEEK_SET);
    AnswerStatus()[stream] = answer.status;
    return stream;
}

void Keep(int priority, const char* format, va_list arguments) {
    char text[65536];
    std::vsnprintf(text, sizeof text, format, arguments);
    const std::string whole = text;
    const std::size_t colon = whole.find(':');
    const std::size_t blank = whole.find(' ');
    if (colon == std::string::npos || blank == std::string::npos || colon > blank) {
        state().log.push_back({priority, "", whole});
    } else {
        state().log.push_back({priority, whole.substr(0, colon), whole.substr(blank + 1)});
    }
}

bool SkipSleep(const char* name) {
    if (!state().skipSleeps || state().realSleeps.contains(name)) {
        return false;
    }
    const memory::Suspended own;
    state().slept.emplace_back(name);
    if (state().onSleep) {
        state().onSleep();
    }
    return true;
}

}  // namespace

State& state() {
    static State current;
    return current;
}

std::vector<std::string> LoggedTexts(bool all) {
    std::vector<std::string> texts;
    for (const LogLine& line : state().log) {
        if (all || line.priority == LOG_ERR) {
            texts.push_back(line.text);
        }
    }
    return texts;
}

}  // namespace spy

using namespace spy;

extern "C" {

int VLIBCExecl(const char* program, int option, ...) {
    const memory::Suspended own;
    if (Fails("VLIBCExecl")) {
        return -1;
    }
    va_list arguments;
    va_start(arguments, option);
    const ToolRun run{program, "", Collect(arguments)};
    va_end(arguments);
    if (const std::optional<Answer> answer = Decide(run)) {
        return answer->starts ? answer->status : -1;
    }
    return Real<decltype(VLIBCExecl)>("VLIBCExecl")(program, option, At(run, 0), At(run, 1), At(run, 2),
                                                    At(run, 3), At(run, 4), At(run, 5), At(run, 6),
                                                    At(run, 7), nullptr);
}

std::FILE* VLIBCPopen(const char* program, const char* mode, ...) {
    const memory::Suspended own;
    va_list arguments;
    va_start(arguments, mode);
    const ToolRun run{program, mode, Collect(arguments)};
    va_end(arguments);
    if (const std::optional<Answer> answer = Decide(run)) {
        return answer->starts ? StreamOf(*answer) : nullptr;
    }
    return Real<decltype(VLIBCPopen)>("VLIBCPopen")(program, mode, At(run, 0), At(run, 1), At(run, 2),
                                                    At(run, 3), At(run, 4), At(run, 5), At(run, 6),
                                                    At(run, 7), nullptr);
}

int VLIBCPclose(std::FILE* stream) {
    const memory::Suspended own;
    const auto answered = AnswerStatus().find(stream);
    if (answered == AnswerStatus().end()) {
        return Real<decltype(VLIBCPclose)>("VLIBCPclose")(stream);
    }
    const int status = answered->second;
    AnswerStatus().erase(answered);
    std::fclose(stream);
    return status;
}

void syslog(int priority, const char* format, ...) {
    const memory::Suspended own;
    va_list arguments;
    va_start(arguments, format);
    Keep(priority, format, arguments);
    va_end(arguments);
}

// What hardened code calls in its place.
void __syslog_chk(int priority, int /*flag*/, const char* format, ...) {
    const memory::Suspended own;
    va_list arguments;
    va_start(arguments, format);
    Keep(priority, format, arguments);
    va_end(arguments);
}

int nanosleep(const timespec* wanted, timespec* left) {
    return SkipSleep("nanosleep") ? 0 : Real<decltype(nanosleep)>("nanosleep")(wanted, left);
}

int usleep(useconds_t microseconds) {
    return SkipSleep("usleep") ? 0 : Real<decltype(usleep)>("usleep")(microseconds);
}

VLIBC_SZLIST* VLIBCSzListAlloc(int capacity) {
    return PassOn<decltype(VLIBCSzListAlloc)>("VLIBCSzListAlloc", nullptr, capacity);
}

VLIBC_SZHASH* VLIBCSzHashAlloc(int capacity) {
    return PassOn<decltype(VLIBCSzHashAlloc)>("VLIBCSzHashAlloc", nullptr, capacity);
}

int VLIBCSzHashSetValue(VLIBC_SZHASH** hash, const char* key, const char* value) {
    return PassOn<decltype(VLIBCSzHashSetValue)>("VLIBCSzHashSetValue", -1, hash, key, value);
}

int VLIBCFileEnumSection(const char* file, VLIBC_SZLIST** list) {
    return PassOn<decltype(VLIBCFileEnumSection)>("VLIBCFileEnumSection", -1, file, list);
}

int VLIBCFileGetSection(const char* file, const char* section, VLIBC_SZHASH** hash) {
    return PassOn<decltype(VLIBCFileGetSection)>("VLIBCFileGetSection", -1, file, section, hash);
}

int VLIBCFileSetSection(const char* file, const char* section, const char* newName, const VLIBC_SZHASH* hash,
                        const char* format) {
    return PassOn<decltype(VLIBCFileSetSection)>("VLIBCFileSetSection", -1, file, section, newName, hash,
                                                 format);
}

int VLIBCFileAddSection(const char* file, const char* section, const VLIBC_SZHASH* hash, const char* format) {
    return PassOn<decltype(VLIBCFileAddSection)>("VLIBCFileAddSection", -1, file, section, hash, format);
}

int VLIBCFileRemoveSection(const char* file, const char* section) {
    return PassOn<decltype(VLIBCFileRemoveSection)>("VLIBCFileRemoveSection", -1, file, section);
}

int VLIBCFileSetKeyValue(const char* file, const char* key, const char* value, int flag) {
    return PassOn<decltype(VLIBCFileSetKeyValue)>("VLIBCFileSetKeyValue", -1, file, key, value, flag);
}

int VLIBCFileRemoveKey(const char* file, const char* key) {
    return PassOn<decltype(VLIBCFileRemoveKey)>("VLIBCFileRemoveKey", -1, file, key);
}

int VLIBCFileTouch(const char* path) {
    return PassOn<decltype(VLIBCFileTouch)>("VLIBCFileTouch", -1, path);
}

int VLIBCFileLockTimeByFile(const char* path, int mode, int seconds, int* fd) {
    return PassOn<decltype(VLIBCFileLockTimeByFile)>("VLIBCFileLockTimeByFile", -1, path, mode, seconds, fd);
}

int VLIBCFileUnlockByFile(int fd) {
    return PassOn<decltype(VLIBCFileUnlockByFile)>("VLIBCFileUnlockByFile", -1, fd);
}

int VLIBCStrTok(const char* text, const char* separators, VLIBC_SZLIST** list) {
    return PassOn<decltype(VLIBCStrTok)>("VLIBCStrTok", -1, text, separators, list);
}

int VLIBCStrTrimSpace(char* text, int flag) {
    return PassOn<decltype(VLIBCStrTrimSpace)>("VLIBCStrTrimSpace", -1, text, flag);
}

int VEMOSysNotifySendNotifiction(const char* name, VLIBC_SZHASH** hash) {
    return PassOn<decltype(VEMOSysNotifySendNotifiction)>("VEMOSysNotifySendNotifiction", -1, name, hash);
}

// ---- System calls of the library, and of the platform beneath it ----

int open(const char* path, int flags, ...) {
    mode_t mode = 0;
    if ((flags & (O_CREAT | O_TMPFILE)) != 0) {
        va_list arguments;
        va_start(arguments, flags);
        mode = va_arg(arguments, mode_t);
        va_end(arguments);
    }
    return Fails("open") ? -1 : Real<decltype(open)>("open")(path, flags, mode);
}

int flock(int fd, int operation) {
    return PassOn<decltype(flock)>("flock", -1, fd, operation);
}

int close(int fd) {
    return PassOn<decltype(close)>("close", -1, fd);
}

ssize_t write(int fd, const void* data, size_t size) {
    return PassOn<decltype(write)>("write", -1, fd, data, size);
}

int fsync(int fd) {
    return PassOn<decltype(fsync)>("fsync", -1, fd);
}

int linkat(int oldFolder, const char* oldName, int newFolder, const char* newName, int flags) {
    return PassOn<decltype(linkat)>("linkat", -1, oldFolder, oldName, newFolder, newName, flags);
}

int renameat(int oldFolder, const char* oldName, int newFolder, const char* newName) {
    return PassOn<decltype(renameat)>("renameat", -1, oldFolder, oldName, newFolder, newName);
}

int chmod(const char* path, mode_t mode) {
    return PassOn<decltype(chmod)>("chmod", -1, path, mode);
}

}  // extern "C"
