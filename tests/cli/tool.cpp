#include "cli/tool.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace tests {
namespace {

constexpr const char* kTool = VEMOCACHECTL_PATH;

std::vector<char*> Vector(Words& words) {
    std::vector<char*> vector;
    for (auto& word : words) {
        vector.push_back(word.data());
    }
    vector.push_back(nullptr);
    return vector;
}

pid_t Spawn(Words words, int out, int err) {
    posix_spawn_file_actions_t actions{};
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, out, STDOUT_FILENO);
    if (err >= 0) {
        posix_spawn_file_actions_adddup2(&actions, err, STDERR_FILENO);
    }
    pid_t pid = -1;
    const std::vector<char*> vector = Vector(words);
    const int error = posix_spawnp(&pid, vector.front(), &actions, nullptr, vector.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    EXPECT_EQ(error, 0) << words.front();
    return pid;
}

int ExitCode(pid_t pid) {
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// Reads what is there; false at the end.
bool ReadSome(int fd, std::string& text) {
    std::array<char, 4096> buffer{};
    const ssize_t size = read(fd, buffer.data(), buffer.size());
    if (size > 0) {
        text.append(buffer.data(), static_cast<std::size_t>(size));
    }
    return size > 0;
}

std::array<int, 2> Pipe() {
    std::array<int, 2> ends{};
    EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
    return ends;
}

Words WithTool(Words arguments) {
    arguments.insert(arguments.begin(), kTool);
    return arguments;
}

}  // namespace

tests::Json Ran::Json() const {
    tests::Json json;
    std::istringstream lines(out);
    for (std::string line; std::getline(lines, line);) {
        json = tests::Json::Parse(line);
        EXPECT_TRUE(json.IsObject()) << line;
    }
    return json;
}

Ran RunProgram(const Words& words) {
    const auto out = Pipe();
    const auto err = Pipe();
    const pid_t pid = Spawn(words, out[1], err[1]);
    close(out[1]);
    close(err[1]);
    Ran ran;
    std::array<pollfd, 2> ends{pollfd{out[0], POLLIN, 0}, pollfd{err[0], POLLIN, 0}};
    while (ends[0].fd >= 0 || ends[1].fd >= 0) {
        poll(ends.data(), ends.size(), -1);
        for (auto& end : ends) {
            if (end.fd >= 0 && end.revents != 0 && !ReadSome(end.fd, end.fd == out[0] ? ran.out : ran.err)) {
                close(end.fd);
                end.fd = -1;
            }
        }
    }
    ran.code = ExitCode(pid);
    return ran;
}

Ran Tool(Words arguments) {
    return RunProgram(WithTool(std::move(arguments)));
}

Json Answer(Words arguments, int code) {
    arguments.emplace_back("--json");
    const Ran ran = Tool(std::move(arguments));
    EXPECT_EQ(ran.code, code) << ran.out << ran.err;
    return ran.Json();
}

void CreateCache() {
    const Ran ran = Tool({"create", "/dev/md3", "/dev/vg1/volume_1", "--size", "64M"});
    ASSERT_EQ(ran.code, 0) << ran.err;
}

int DirtyBlocks() {
    return static_cast<int>(Answer({"status", "cachedev_0"})["caches"][0]["dirty_blocks"].Number());
}

void CreateDirtyCache() {
    CreateCache();
    Fault("cleaning", "pause");
    ASSERT_EQ(RunProgram({"dd", "if=/dev/urandom", "of=/tmp/data", "bs=64k", "count=20"}).code, 0);
    ASSERT_EQ(RunProgram({"dd", "if=/tmp/data", "of=/dev/mapper/cachedev_0", "bs=64k", "oflag=direct"}).code,
              0);
    ASSERT_EQ(DirtyBlocks(), kDirty);
}

bool VolumeHoldsData() {
    return RunProgram({"cmp", "-n", std::to_string(kDirty * 65536), "/tmp/data", "/dev/vg1/volume_1"}).code ==
           0;
}

void Fault(const std::string& name, const std::string& value) {
    const Ran ran = RunProgram({VEMO_APPLIANCE_PATH, "fault", name, value});
    ASSERT_EQ(ran.code, 0) << ran.err;
}

Ran ToolOnTerminal(Words arguments, const std::string& prompt, const std::string& typed,
                   unsigned short columns) {
    return ToolOnTerminal(std::move(arguments), prompt, std::function<std::string()>([&] { return typed; }),
                          columns);
}

Ran ToolOnTerminal(Words arguments, const std::string& prompt, const std::function<std::string()>& type,
                   unsigned short columns) {
    return OnTerminal(WithTool(std::move(arguments)), {{prompt, [&](pid_t) { return type(); }}}, columns, 24);
}

Ran OnTerminal(Words words, const std::vector<Step>& steps, unsigned short columns, unsigned short rows) {
    const std::vector<char*> vector = Vector(words);
    int terminal = -1;
    const winsize size{rows, columns, 0, 0};
    const pid_t pid = forkpty(&terminal, nullptr, nullptr, &size);
    if (pid == 0) {
        execvp(vector.front(), vector.data());
        _exit(127);
    }
    Ran ran;
    std::size_t seen = 0;
    auto step = steps.begin();
    while (ReadSome(terminal, ran.out)) {
        for (; step != steps.end(); ++step) {
            const auto at = ran.out.find(step->awaited, seen);
            if (at == std::string::npos) {
                break;
            }
            seen = at + step->awaited.size();
            const std::string typed = step->act(pid);
            EXPECT_EQ(write(terminal, typed.data(), typed.size()), static_cast<ssize_t>(typed.size()));
        }
    }
    EXPECT_EQ(step, steps.end()) << "no \"" << (step == steps.end() ? "" : step->awaited) << "\" in "
                                 << ran.out;
    close(terminal);
    ran.code = ExitCode(pid);
    return ran;
}

bool Runs(const std::string& command) {
    std::error_code error;
    for (std::filesystem::directory_iterator entry("/proc", error), end; !error && entry != end;
         entry.increment(error)) {
        std::ifstream file(entry->path() / "cmdline");
        std::string words;
        std::getline(file, words);  // unlike iterators it does not throw when the process ends just then
        std::replace(words.begin(), words.end(), '\0', ' ');
        if (words.starts_with(command)) {
            return true;
        }
    }
    return false;
}

RunningTool::RunningTool(Words arguments, bool withRemarks) {
    const auto out = Pipe();
    pid_ = Spawn(WithTool(std::move(arguments)), out[1], withRemarks ? out[1] : -1);
    close(out[1]);
    out_ = out[0];
}

RunningTool::~RunningTool() {
    if (pid_ > 0) {
        kill(pid_, SIGKILL);
        ExitCode(pid_);
    }
    close(out_);
}

std::string RunningTool::NextLine() {
    while (unread_.find('\n') == std::string::npos && ReadSome(out_, unread_)) {
    }
    const std::string line = unread_.substr(0, unread_.find('\n'));
    unread_.erase(0, line.size() + 1);
    return line;
}

void RunningTool::Signal(int signal) const {
    kill(pid_, signal);
}

int RunningTool::Wait() {
    const int code = ExitCode(pid_);
    pid_ = -1;
    return code;
}

bool ToolLiesBelow(const std::string& folder) {
    return std::string_view(kTool).starts_with(folder + "/");
}

}  // namespace tests
