#include "support/platform_spy.h"

#include <dlfcn.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>

#include "platform/vemocore.h"
#include "platform/vemosdk.h"
#include "platform/vemosysnotify.h"

namespace spy {
namespace {

/// The function that the test program's own definition hides.
template <class Function>
Function* Real(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

/// Whether this call of the platform function is to fail.
bool Fails(const char* name) {
    const auto fault = state().faults.find(name);
    if (fault == state().faults.end()) {
        return false;
    }
    if (fault->second.call > 1) {
        --fault->second.call;
        return false;
    }
    if (!fault->second.stays) {
        state().faults.erase(fault);
    }
    return true;
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

/// Argument `index` of a run for the real variadic function; NULL ends the list there.
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
    std::rewind(stream);
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
    return Fails("VLIBCSzListAlloc") ? nullptr
                                     : Real<decltype(VLIBCSzListAlloc)>("VLIBCSzListAlloc")(capacity);
}

VLIBC_SZHASH* VLIBCSzHashAlloc(int capacity) {
    return Fails("VLIBCSzHashAlloc") ? nullptr
                                     : Real<decltype(VLIBCSzHashAlloc)>("VLIBCSzHashAlloc")(capacity);
}

int VLIBCSzHashSetValue(VLIBC_SZHASH** hash, const char* key, const char* value) {
    return Fails("VLIBCSzHashSetValue")
               ? -1
               : Real<decltype(VLIBCSzHashSetValue)>("VLIBCSzHashSetValue")(hash, key, value);
}

int VLIBCFileEnumSection(const char* file, VLIBC_SZLIST** list) {
    return Fails("VLIBCFileEnumSection")
               ? -1
               : Real<decltype(VLIBCFileEnumSection)>("VLIBCFileEnumSection")(file, list);
}

int VLIBCFileRemoveSection(const char* file, const char* section) {
    return Fails("VLIBCFileRemoveSection")
               ? -1
               : Real<decltype(VLIBCFileRemoveSection)>("VLIBCFileRemoveSection")(file, section);
}

int VLIBCFileAddSection(const char* file, const char* section, const VLIBC_SZHASH* hash, const char* format) {
    return Fails("VLIBCFileAddSection")
               ? -1
               : Real<decltype(VLIBCFileAddSection)>("VLIBCFileAddSection")(file, section, hash, format);
}

int VLIBCFileLockTimeByFile(const char* path, int mode, int seconds, int* fd) {
    return Fails("VLIBCFileLockTimeByFile")
               ? -1
               : Real<decltype(VLIBCFileLockTimeByFile)>("VLIBCFileLockTimeByFile")(path, mode, seconds, fd);
}

int VLIBCStrTrimSpace(char* text, int flag) {
    return Fails("VLIBCStrTrimSpace") ? -1
                                      : Real<decltype(VLIBCStrTrimSpace)>("VLIBCStrTrimSpace")(text, flag);
}

}  // extern "C"
