#include "simulation/launcher/state.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <thread>
#include <utility>

#include "base/unique_fd.h"
#include "simulation/common/checked.h"

namespace simulation {

namespace {

std::string LockFile(const std::string& folder) {
    return folder + "/lock";
}

// The two processes noted in a lock file, launcher and init; zeros when there are none.
std::pair<pid_t, pid_t> NotedProcesses(const std::string& folder) {
    std::pair<pid_t, pid_t> noted{0, 0};
    std::ifstream file(LockFile(folder));
    file >> noted.first >> noted.second;
    return noted;
}

// A process that has ended but is not waited for yet is not alive.
bool IsAlive(pid_t process) {
    const base::UniqueFd handle(process > 0 ? static_cast<int>(syscall(SYS_pidfd_open, process, 0)) : -1);
    pollfd ended{handle.Get(), POLLIN, 0};
    return handle && poll(&ended, 1, 0) == 0;
}

}  // namespace

State::State(std::string folder) : folder_(std::move(folder)) {
    if (IsKept()) {
        std::filesystem::create_directories(folder_);
        folder_ = std::filesystem::canonical(folder_);
        Lock();
    }
}

void State::Lock() {
    using std::chrono_literals::operator""ms;
    constexpr int kTries = 500;  // a killed appliance is gone within a few seconds
    lock_ =
        base::UniqueFd(Checked(open(LockFile(folder_).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600), folder_));
    for (int i = 0; i < kTries; ++i) {
        if (flock(lock_.Get(), LOCK_EX | LOCK_NB) == 0) {
            Checked(ftruncate(lock_.Get(), 0), folder_);
            return;
        }
        if (errno != EWOULDBLOCK) {
            ThrowErrno(folder_);
        }
        if (IsAlive(NotedProcesses(folder_).first)) {
            break;
        }
        std::this_thread::sleep_for(10ms);
    }
    throw std::runtime_error("an appliance is running on " + folder_ + " (process " +
                             std::to_string(NotedProcesses(folder_).first) +
                             "); end it, or boot on another --state folder");
}

void State::Publish(pid_t launcher, pid_t init) const {
    if (IsKept()) {
        const std::string text = std::to_string(launcher) + " " + std::to_string(init) + "\n";
        Checked(pwrite(lock_.Get(), text.data(), text.size(), 0), folder_);
    }
}

base::UniqueFd State::OpenFile(const std::string& name, int extraFlags) const {
    if (IsKept()) {
        const std::string path = folder_ + "/" + name;
        return base::UniqueFd(
            Checked(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | extraFlags, 0600), path));
    }
    for (const char* folder : {"/var/tmp", "/tmp", "/dev/shm"}) {
        base::UniqueFd file(open(folder, O_RDWR | O_TMPFILE | O_CLOEXEC | extraFlags, 0600));
        if (file) {
            return file;
        }
    }
    ThrowErrno("a temporary file");
}

base::UniqueFd State::OpenDisk(const std::string& name, uint64_t size) const {
    base::UniqueFd file = OpenFile(name + ".img", 0);
    struct stat status{};
    Checked(fstat(file.Get(), &status), name);
    if (status.st_size == 0) {
        Checked(ftruncate(file.Get(), static_cast<off_t>(size)), name);
    }
    return file;
}

base::UniqueFd State::OpenUnflushed(const std::string& diskName, bool make) const {
    const std::string name = diskName + ".unflushed";
    return make || std::filesystem::exists(folder_ + "/" + name) ? OpenFile(name, 0) : base::UniqueFd();
}

void State::RemoveUnflushed(const std::string& diskName) const {
    std::filesystem::remove(folder_ + "/" + diskName + ".unflushed");
}

base::UniqueFd State::OpenLog() const {
    return OpenFile("messages", O_APPEND);
}

std::string State::Folder(const std::string& name) const {
    const std::string path = folder_ + "/" + name;
    std::filesystem::create_directories(path);
    return path;
}

pid_t RunningInit(const std::string& folder) {
    const auto [launcher, init] = NotedProcesses(folder);
    return IsAlive(launcher) && IsAlive(init) ? init : 0;
}

}  // namespace simulation
