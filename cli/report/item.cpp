#include "report/item.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <poll.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>

#include "base/pipe.h"
#include "base/unique_fd.h"

namespace cli {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kMostOutput = 1U << 20U;

double MillisecondsSince(Clock::time_point start) {
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

void ReadAll(int file, ReportItem& item) {
    std::array<char, 65536> buffer{};
    ssize_t count = 0;
    while (item.text.size() < kMostOutput && (count = read(file, buffer.data(), buffer.size())) > 0) {
        item.text.append(buffer.data(), static_cast<std::size_t>(count));
    }
    if (count < 0) {
        item.error = std::strerror(errno);
    }
}

// The last lines, whole ones, of a file that is too long.
void SeekEnd(int file, std::uint64_t size, std::uint64_t mostBytes, ReportItem& item) {
    item.isCut = size > mostBytes;
    if (item.isCut) {
        lseek(file, static_cast<off_t>(size - mostBytes), SEEK_SET);
    }
}

void DropFirstLine(std::string& text) {
    const auto end = text.find('\n');
    text.erase(0, end == std::string::npos ? 0 : end + 1);
}

// Until the pipe ends; false when the time is up first.
bool ReadOutput(int pipe, Clock::time_point end, std::string& text) {
    std::array<char, 4096> buffer{};
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
        pollfd output{pipe, POLLIN, 0};
        if (left <= 0 || poll(&output, 1, static_cast<int>(left)) == 0) {
            return false;
        }
        const ssize_t count = read(pipe, buffer.data(), buffer.size());
        if (count <= 0) {
            return true;
        }
        if (text.size() < kMostOutput) {
            text.append(buffer.data(), static_cast<std::size_t>(count));
        }
    }
}

pid_t Start(const std::vector<std::string>& words, int output) {
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (const auto& word : words) {
        arguments.push_back(const_cast<char*>(word.c_str()));  // NOLINT: posix_spawn takes no const
    }
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_addopen(&files, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&files, output, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&files, output, STDERR_FILENO);
    pid_t child = -1;
    errno = posix_spawnp(&child, arguments.front(), &files, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&files);
    return errno == 0 ? child : -1;
}

void TakeEnd(pid_t child, bool isOver, double patience, ReportItem& item) {
    if (!isOver) {
        kill(child, SIGKILL);
        item.error = fmt::format("it did not end within {:g} seconds", patience);
    }
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    if (WIFEXITED(status)) {
        item.code = WEXITSTATUS(status);
        if (item.code != 0) {
            item.error = fmt::format("it ended with exit code {}", *item.code);
        }
    } else if (isOver) {
        item.error = "a signal ended it";
    }
}

}  // namespace

ReportItem ReadItem(const std::string& path, std::uint64_t mostBytes) {
    ReportItem item;
    item.name = path;
    const auto start = Clock::now();
    // A pipe without a writer would be waited for.
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-vararg): open has no other form.
    const base::UniqueFd file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat status{};
    if (!file || fstat(file.Get(), &status) != 0) {
        item.isThere = errno != ENOENT;
        item.error = std::strerror(errno);
    } else if (!S_ISREG(status.st_mode)) {
        item.user = status.st_uid;
        item.error = "it is no regular file";
    } else {
        item.user = status.st_uid;
        SeekEnd(file.Get(), static_cast<std::uint64_t>(status.st_size), mostBytes, item);
        ReadAll(file.Get(), item);
    }
    if (item.isCut) {
        DropFirstLine(item.text);
    }
    item.milliseconds = MillisecondsSince(start);
    return item;
}

ReportItem RunItem(const std::vector<std::string>& words, double patience) {
    ReportItem item;
    item.isCommand = true;
    item.name = fmt::format("{}", fmt::join(words, " "));
    const auto start = Clock::now();
    base::Pipe pipe = base::MakePipe();
    const pid_t child = pipe.read ? Start(words, pipe.write.Get()) : -1;
    pipe.write.Reset();
    if (child < 0) {
        item.isThere = errno != ENOENT;
        item.error = std::strerror(errno);
    } else {
        const auto end =
            start + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(patience));
        TakeEnd(child, ReadOutput(pipe.read.Get(), end, item.text), patience, item);
    }
    item.milliseconds = MillisecondsSince(start);
    return item;
}

}  // namespace cli
