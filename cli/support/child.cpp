#include "support/child.h"

#include <fmt/format.h>

#include <filesystem>
#include <fstream>
#include <sstream>

namespace cli {
namespace {

namespace fs = std::filesystem;

// The fourth word of a line such as "123 (flashcache_creat) S 100 ...", where the name may hold anything.
pid_t ParentIn(const std::string& stat) {
    const auto nameEnd = stat.rfind(')');
    std::istringstream rest(nameEnd == std::string::npos ? "" : stat.substr(nameEnd + 1));
    char state = 0;
    pid_t parent = -1;
    rest >> state >> parent;
    return state == 'Z' ? -1 : parent;
}

std::string FirstOf(const fs::path& file, char end) {
    std::string text;
    std::getline(std::ifstream(file), text, end);
    return text;
}

}  // namespace

std::string ChildOf(pid_t parent) {
    std::error_code error;
    for (fs::directory_iterator entry("/proc", error), end; !error && entry != end; entry.increment(error)) {
        const std::string pid = entry->path().filename();
        if (pid.find_first_not_of("0123456789") == std::string::npos &&
            ParentIn(FirstOf(entry->path() / "stat", '\n')) == parent) {
            // The kernel's own name of a program is cut after 15 characters.
            const std::string program = FirstOf(entry->path() / "cmdline", '\0');
            return fmt::format("{} (process {})", program.substr(program.rfind('/') + 1), pid);
        }
    }
    return "";
}

}  // namespace cli
