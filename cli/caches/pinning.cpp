#include "caches/pinning.h"

#include <fmt/format.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <optional>

#include "caches/programs.h"
#include "support/dry_run.h"
#include "support/failure.h"
#include "vemoflashcache.h"

namespace cli {
namespace {

// The library takes no longer list, and a list of one file is its path.
constexpr std::size_t kLongestPath = 1023;

// Nothing: not known.
std::optional<bool> IsPinned(const std::string& path) {
    std::uint32_t pinned = 0;
    const Outcome outcome = Attempt([&] { return VEMOFlashCachePinIsFileAdded(path.c_str(), &pinned); });
    return outcome.result == 0 ? std::optional(pinned != 0) : std::nullopt;
}

// Why no pin of this file can be changed; empty: it may. The platform keeps no words of the tool.
std::string WhyUnfit(const std::string& path, const std::string& mount, bool pin) {
    if (path.find('\n') != std::string::npos) {
        return "its name has a line end";
    }
    if (path.size() > kLongestPath) {
        return fmt::format("its path is longer than {} characters, the most that can be pinned",
                           kLongestPath);
    }
    struct stat file{};
    struct stat folder{};
    if (stat(path.c_str(), &file) != 0) {
        return pin || errno != ENOENT ? std::strerror(errno) : "";  // one that is gone may have its pin still
    }
    if (!S_ISREG(file.st_mode)) {
        return "it is no regular file";
    }
    return stat(mount.c_str(), &folder) != 0 || file.st_dev != folder.st_dev
               ? fmt::format("it is no file of the volume mounted at {}", mount)
               : "";
}

const char* TextOf(Pinning::Result result) {
    switch (result) {
        case Pinning::Result::kPinned:
            return "pinned";
        case Pinning::Result::kAlreadyPinned:
            return "already_pinned";
        case Pinning::Result::kUnpinned:
            return "unpinned";
        case Pinning::Result::kNotPinned:
            return "not_pinned";
        case Pinning::Result::kFailed:
            break;
    }
    return "failed";
}

}  // namespace

Record Pinning::Fields() const {
    const bool isPinned = result == Result::kPinned || result == Result::kAlreadyPinned;
    return {{{"file", "File", path},
             {"result", "Result", TextOf(result)},
             {"pinned", "Pinned", result == Result::kFailed ? Value() : Value(isPinned)},
             {"problem", "Problem", KnownText(problem), Format::kPlain, false, true}}};
}

std::string PinPath(const std::string& file) {
    return std::filesystem::absolute(file).lexically_normal();
}

Pinning ChangePin(const std::string& file, const std::string& mount, bool pin) {
    const std::string path = PinPath(file);
    if (std::string why = WhyUnfit(path, mount, pin); !why.empty()) {
        return {path, Pinning::Result::kFailed, std::move(why)};
    }
    if (IsPinned(path) == pin) {
        return {path, pin ? Pinning::Result::kAlreadyPinned : Pinning::Result::kNotPinned, ""};
    }
    const auto change = pin ? VEMOFlashCachePinAddFiles : VEMOFlashCachePinRemoveFiles;
    const char* call = pin ? "VEMOFlashCachePinAddFiles" : "VEMOFlashCachePinRemoveFiles";
    const Outcome outcome = Change(
        Attempt, [&] { return Step{call, {path, mount}, ChangingPin(pin, path, mount)}; },
        [&] { return change(path.c_str(), mount.c_str()); });
    if (outcome.result != 0) {
        return {path, Pinning::Result::kFailed, outcome.reason};
    }
    return {path, pin ? Pinning::Result::kPinned : Pinning::Result::kUnpinned, ""};
}

}  // namespace cli
