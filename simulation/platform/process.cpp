#include <algorithm>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>

#include "simulation/platform/errors.h"
#include "simulation/platform/text.h"

using namespace vemo::platform;

namespace {

// Callers keep the text as a value of a key-value file and read it back into a buffer of 1024 bytes: a longer
// one, or one with line ends, would never compare equal again.
constexpr size_t kLongestCommand = 1023;

std::string ReadStart(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::string text(kLongestCommand, '\0');
    file.read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<size_t>(file.gcount()));
    return text;
}

// The arguments with blanks between them; the short name for a process without any.
std::string CommandText(pid_t pid) {
    const std::string folder = "/proc/" + std::to_string(pid);
    const std::string arguments = OneLine(ReadStart(folder + "/cmdline"));
    const std::string_view command = Trim(arguments);
    return command.empty() ? std::string(Trim(OneLine(ReadStart(folder + "/comm")))) : std::string(command);
}

}  // namespace

VLIBC_PROC* VLIBCProcGetByPid(pid_t pid) {
    return Guard(static_cast<VLIBC_PROC*>(nullptr), [&]() -> VLIBC_PROC* {
        const std::string command = pid > 0 ? CommandText(pid) : std::string();
        if (command.empty()) {
            errno = ESRCH;
            Fail(VLIBC_ERR_NOT_FOUND);
            return nullptr;
        }
        auto text = std::make_unique<char[]>(command.size() + 1);
        std::copy(command.begin(), command.end(), text.get());
        auto proc = std::make_unique<VLIBC_PROC>(VLIBC_PROC{pid, text.get()});
        static_cast<void>(text.release());
        return proc.release();
    });
}

void VLIBCProcFree(VLIBC_PROC* proc) {
    if (proc == nullptr) return;
    delete[] proc->cmd;
    delete proc;
}
