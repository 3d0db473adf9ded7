#include "support/library_log.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <array>

#include "base/pipe.h"
#include "base/unique_fd.h"
#include "base/write_all.h"

namespace cli {
namespace {

// A longer line is cut, whatever a tool says.
constexpr std::size_t kLongestLine = 300;

bool isShown = false;

// How the library announces the run of a tool, before its path.
constexpr std::array<std::string_view, 5> kRuns = {
    "Create Cache: ", "Load Cache: ", "Unload Cache: ", "Expand Command: ", "Cache Destroy: "};

// What it says once it has taken the tool's words for a failure.
constexpr std::array<std::string_view, 5> kFailures = {"Get error messages", "Load cache failed",
                                                       "Failed to unlod", "Expand cache failed",
                                                       "failed to destroy cache"};

// The closing words of a tool that gave its reason before, and the library's notes for debugging.
constexpr std::array<std::string_view, 4> kNoReasons = {"Command failed.", "Cmd = ", "Volume(", "File ("};

template <typename Texts>
const std::string_view* StartOf(std::string_view text, const Texts& starts) {
    const auto found =
        std::find_if(starts.begin(), starts.end(), [&](auto start) { return text.starts_with(start); });
    return found == starts.end() ? nullptr : &*found;
}

// A line without "vemocachectl[123]: " and "file.cpp:84 ". What a program wrote itself has neither.
std::string_view WithoutHead(std::string_view line) {
    constexpr std::string_view kPidEnd = "]: ";
    constexpr std::string_view kFileEnd = ".cpp:";
    const auto pid = line.find(kPidEnd);
    const auto file = line.find(kFileEnd);
    const auto text = file == std::string_view::npos ? file : line.find(' ', file);
    return line.starts_with("vemocachectl[") && pid < file && text != std::string_view::npos
               ? line.substr(text + 1)
               : line;
}

// The same without the error slot at its end, which may be that of an earlier step.
std::string_view WithoutTail(std::string_view text) {
    text = text.substr(0, text.rfind("[0x"));
    const auto end = text.find_last_not_of(" ,.");
    return end == std::string_view::npos ? "" : text.substr(0, end + 1);
}

std::string NameOf(std::string_view command) {
    const std::string_view path = command.substr(0, command.find(' '));
    return std::string(path.substr(path.rfind('/') + 1));
}

std::string Quote(std::string_view text) {
    return fmt::format("the library says: {}", WithoutTail(text));
}

// Until `stop` is closed at its other end, and then what lies in the pipe by then: what a tool left running
// may keep the pipe open, or write to it, for ever. A copy goes to `shown` unless that is -1.
void Read(const base::UniqueFd& pipe, const base::UniqueFd& stop, int shown, LogReader& log) {
    std::array<char, 4096> buffer{};
    std::array<pollfd, 2> ends = {{{pipe.Get(), POLLIN, 0}, {stop.Get(), 0, 0}}};
    constexpr std::size_t kPipeSize = 65536;
    for (std::size_t left = kPipeSize; left > 0;) {
        poll(ends.data(), ends.size(), -1);
        const bool isReadable = ends[0].revents != 0;
        const bool isStopped = ends[1].revents != 0;
        const ssize_t size = isReadable ? read(pipe.Get(), buffer.data(), buffer.size()) : 0;
        if (size <= 0 && (isReadable || isStopped)) {
            return;
        }
        const std::string_view piece(buffer.data(), static_cast<std::size_t>(size));
        left -= isStopped ? std::min(left, piece.size()) : 0;
        log.Take(piece);
        if (shown >= 0) {
            base::WriteAll(shown, piece);
        }
    }
}

void OpenLog(bool onStandardError) {
    openlog("vemocachectl", LOG_PID | (onStandardError ? LOG_PERROR : 0), LOG_USER);
}

}  // namespace

void OpenSystemLog(bool shown) {
    isShown = shown;
    OpenLog(shown);
}

void LogReader::Take(std::string_view piece) {
    for (const char character : piece) {
        if (character == '\n') {
            TakeLine(line_);
            line_.clear();
        } else if (line_.size() < kLongestLine) {
            line_.push_back(character);
        }
    }
}

void LogReader::TakeLine(std::string_view line) {
    const std::string_view text = WithoutHead(line);
    if (const auto* start = StartOf(text, kRuns)) {
        tool_ = NameOf(text.substr(start->size()));
        last_.clear();
        reason_.clear();
    } else if (!reason_.empty()) {
        return;  // consequences, and who may hold a device
    } else if (StartOf(text, kFailures) != nullptr) {
        reason_ = last_.empty()              ? Quote(text)
                  : last_.starts_with(tool_) ? last_
                                             : fmt::format("{}: {}", tool_, last_);
    } else if (text.find_first_not_of(" \t\r") != std::string_view::npos &&
               StartOf(text, kNoReasons) == nullptr) {
        last_ = text;
    }
}

std::string LogReader::Reason() const {
    return !reason_.empty() ? reason_ : last_.empty() ? "" : Quote(last_);
}

LogCapture::LogCapture() : stderr_(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1)) {
    base::Pipe log = base::MakePipe();
    base::Pipe stop = base::MakePipe();
    if (!stderr_ || !log.read || !stop.read) {
        return;  // the reason stays unknown, the call goes on
    }
    const base::UniqueFd writeEnd = std::move(log.write);
    stop_ = std::move(stop.write);
    reader_ = std::thread([this, pipe = std::move(log.read), end = std::move(stop.read),
                           shown = isShown ? stderr_.Get() : -1] { Read(pipe, end, shown, log_); });
    dup2(writeEnd.Get(), STDERR_FILENO);
    OpenLog(true);
}

LogCapture::~LogCapture() {
    End();
}

std::string LogCapture::Reason() {
    End();
    return log_.Reason();
}

void LogCapture::End() {
    if (!reader_.joinable()) {
        return;
    }
    OpenLog(isShown);
    dup2(stderr_.Get(), STDERR_FILENO);
    stop_.Reset();
    reader_.join();
}

}  // namespace cli
