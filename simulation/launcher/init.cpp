#include "simulation/launcher/init.h"

#include <fcntl.h>
#include <net/if.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <sys/wait.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <optional>
#include <set>
#include <thread>

#include "base/unique_fd.h"
#include "simulation/common/checked.h"
#include "simulation/kernel/daemon.h"
#include "simulation/launcher/devices.h"
#include "simulation/launcher/mounts.h"
#include "simulation/launcher/process.h"
#include "simulation/launcher/rebuild.h"
#include "simulation/launcher/root.h"

namespace simulation {

namespace {

namespace fs = std::filesystem;

// Binds a socket to a path of the appliance.
void BindTo(int socketFd, const std::string& path, mode_t mode) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    Checked(bind(socketFd, reinterpret_cast<const sockaddr*>(&address), sizeof address), path);
    Checked(chmod(path.c_str(), mode), path);
}

base::UniqueFd OpenFolder(const char* path) {
    return base::UniqueFd(Checked(open(path, O_PATH | O_DIRECTORY | O_CLOEXEC), path));
}

// The names, queues and networks of the machine are none of the appliance's, whose network is its loopback.
void LeaveMachine() {
    Checked(unshare(kOwnNamespaces), "namespaces");
    const base::UniqueFd socketFd(Checked(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0), "the loopback"));
    ifreq loopback{};
    std::strcpy(loopback.ifr_name, "lo");
    loopback.ifr_flags = IFF_UP | IFF_RUNNING;
    Checked(ioctl(socketFd.Get(), SIOCSIFFLAGS, &loopback), "the loopback");
}

class Init {
  public:
    Init(const Options& options, const State& state) : options_(options), state_(state) {}

    void Boot(int launcher);
    int RunCommand();
    std::optional<int> ShutDown();

  private:
    void AddDisk(std::vector<Disk>& disks, const std::string& name, uint64_t size);
    std::optional<Unflushed> EndPowerCut(const std::string& fileName, int file, uint64_t number) const;
    void AddDisks(std::vector<Disk>& disks);
    void StartKernel(std::vector<Disk> disks);
    [[noreturn]] void BeKernel(std::vector<Disk> disks, base::UniqueFd fuse, base::UniqueFd requests);
    RootPlan PlanRoot() const;
    std::optional<int> TakeSignal();
    std::optional<int> Reap();
    int EndOfKernel(int status);
    std::optional<int> AwaitDyingKernel();
    void TakeRequest();
    std::vector<pid_t> OtherProcesses() const;

    const Options& options_;
    const State& state_;
    const std::string folder_ = fs::current_path();
    base::UniqueFd outerMounts_{open("/proc/self/ns/mnt", O_RDONLY | O_CLOEXEC)};
    base::UniqueFd signals_ = TakeSignals();
    base::UniqueFd log_{socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
    base::UniqueFd control_{socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0)};
    std::optional<Devices> devices_;
    std::set<std::string> ownMounts_;
    pid_t kernel_ = 0;
    pid_t command_ = 0;
};

void Init::Boot(int launcher) {
    const RootPlan plan = PlanRoot();
    LeaveMachine();
    EnterStage();
    devices_.emplace(OpenFolder(kStageDev));
    std::vector<Disk> disks;
    AddDisks(disks);
    StartKernel(std::move(disks));
    struct stat kernelRoot{};
    Checked(stat(kStageKernel, &kernelRoot), "the simulated kernel");
    dprintf(launcher, "%u\n", minor(kernelRoot.st_dev));
    EnterRoot(plan);
    BindTo(log_.Get(), "/dev/log", 0666);
    BindTo(control_.Get(), kControlSocket, 0600);
    Checked(listen(control_.Get(), SOMAXCONN), kControlSocket);
    if (options_.reported) {
        Rebuild(*options_.reported, *devices_);
    }
    const std::vector<std::string> points = MountPoints();
    ownMounts_ = {points.begin(), points.end()};
}

void Init::AddDisk(std::vector<Disk>& disks, const std::string& name, uint64_t size) {
    const std::string path = "/dev/" + name;
    // The volumes of the numbered pairs have kept their bytes under the last part of their names.
    std::string fileName = name.starts_with("vg1/volume_") ? name.substr(4) : name;
    std::replace(fileName.begin(), fileName.end(), '/', '%');
    base::UniqueFd file = state_.OpenDisk(fileName, size);
    base::UniqueFd kernelFile(fcntl(file.Get(), F_DUPFD_CLOEXEC, 0));
    std::optional<Unflushed> unflushed = EndPowerCut(fileName, file.Get(), disks.size());
    const int node = devices_->AddDisk(path, std::move(file));
    disks.emplace_back(path, std::move(kernelFile), base::UniqueFd(fcntl(node, F_DUPFD_CLOEXEC, 0)),
                       std::move(unflushed));
}

// Takes from a disk what it had not flushed when the last boot ended out of order.
std::optional<Unflushed> Init::EndPowerCut(const std::string& fileName, int file, uint64_t number) const {
    if (!state_.IsKept()) {
        return std::nullopt;
    }
    constexpr uint64_t kMostDisks = 1000;
    base::UniqueFd unflushed = state_.OpenUnflushed(fileName, options_.volatileSeed.has_value());
    if (unflushed) {
        Unflushed::TakeBack(unflushed.Get(), file);
    }
    if (!options_.volatileSeed) {
        state_.RemoveUnflushed(fileName);
        return std::nullopt;
    }
    return std::optional<Unflushed>(std::in_place, std::move(unflushed),
                                    *options_.volatileSeed * kMostDisks + number);
}

void Init::AddDisks(std::vector<Disk>& disks) {
    if (options_.reported) {
        for (const ReportedDisk& disk : options_.reported->disks) {
            AddDisk(disks, disk.name, disk.bytes);
        }
        return;
    }
    constexpr unsigned kFirstSsd = 3;
    for (unsigned i = 0; i < options_.pairs; ++i) {
        AddDisk(disks, "md" + std::to_string(kFirstSsd + i), options_.ssdBytes);
        AddDisk(disks, "vg1/volume_" + std::to_string(1 + i), options_.volumeBytes);
    }
    for (const auto& names : options_.namedPairs) {
        const auto plus = names.find('+');
        AddDisk(disks, names.substr(0, plus), options_.ssdBytes);
        AddDisk(disks, names.substr(plus + 1), options_.volumeBytes);
    }
}

// The file system is mounted first: an unmounted /dev/fuse cannot be waited on.
void Init::StartKernel(std::vector<Disk> disks) {
    base::UniqueFd fuse(Checked(open("/dev/fuse", O_RDWR | O_CLOEXEC), "/dev/fuse"));
    Mount("vemo-kernel", kStageKernel, "fuse", MS_NOSUID | MS_NODEV,
          "rootmode=40000,user_id=0,group_id=0,allow_other,default_permissions,fd=" +
              std::to_string(fuse.Get()));
    int ends[2] = {};
    Checked(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends), "a socket pair");
    base::UniqueFd ours(ends[0]);
    base::UniqueFd theirs(ends[1]);
    kernel_ = Fork([&]() -> int {
        ours.Reset();
        BeKernel(std::move(disks), std::move(fuse), std::move(theirs));
    });
    devices_->ConnectKernel(std::move(ours), OpenFolder(kStageKernel));
}

// The daemon lives in the machine's mount namespace: in the appliance's own it would, when that is torn
// down, be waited for by the unmounting of what it serves.
void Init::BeKernel(std::vector<Disk> disks, base::UniqueFd fuse, base::UniqueFd requests) {
    // A runtime that has threads of its own, as a sanitizer's, shares the working folder with them, which a
    // mount namespace is not joined with.
    Checked(unshare(CLONE_FS), "a working folder of its own");
    Checked(setns(outerMounts_.Get(), CLONE_NEWNS), "the machine's mount namespace");
    prctl(PR_SET_NAME, "vemo-kernel");
    prctl(PR_SET_IO_FLUSHER, 1, 0, 0,
          0);  // not to be made to wait for writers that wait for us; only if allowed
    setsid();
    SystemLog log(std::move(log_), state_.OpenLog());
    Kernel kernel(std::move(disks), std::move(log), OpenOwnProc(), options_.cleanRate,
                  options_.trace ? std::move(*options_.trace) : base::UniqueFd());
    ServeKernel(kernel, fcntl(fuse.Get(), F_DUPFD_CLOEXEC, 0), requests.Get());
    _exit(0);
}

RootPlan Init::PlanRoot() const {
    RootPlan plan;
    const fs::path program = fs::read_symlink("/proc/self/exe");
    plan.installPrefix = program.parent_path().parent_path();
    plan.neededPaths = {plan.installPrefix, folder_};
    std::error_code ignored;
    const fs::path command = fs::canonical(options_.command[0], ignored);
    if (!command.empty()) {
        const fs::path folder = command.parent_path();
        plan.neededPaths.push_back(folder == "/tmp" ? command : folder);
    }
    if (state_.IsKept()) {
        plan.keptEtc = state_.Folder("usr-vemo-etc");
        plan.keptDefaults = state_.Folder("etc.defaults");
    }
    return plan;
}

int Init::RunCommand() {
    command_ = Fork([this] { return BecomeCommand(options_.command, folder_); });
    for (;;) {
        pollfd sources[] = {{signals_.Get(), POLLIN, 0}, {control_.Get(), POLLIN, 0}};
        if (poll(sources, std::size(sources), -1) < 0) {
            continue;
        }
        if (sources[0].revents != 0) {
            if (const auto code = TakeSignal()) {
                return *code;
            }
        }
        if (sources[1].revents != 0) {
            TakeRequest();
        }
    }
}

// The exit code when the command was told to have ended, or the kernel.
std::optional<int> Init::TakeSignal() {
    signalfd_siginfo info{};
    if (read(signals_.Get(), &info, sizeof info) != sizeof info) {
        return std::nullopt;
    }
    if (info.ssi_signo != SIGCHLD) {
        if (info.ssi_code != SI_KERNEL) {  // what the terminal sends, the command got itself
            kill(command_, static_cast<int>(info.ssi_signo));
        }
        return std::nullopt;
    }
    return Reap();
}

// Collects the children that have ended. The exit code when the command is one of them, or the kernel,
// without which there is no going on.
std::optional<int> Init::Reap() {
    std::optional<int> code;
    int status = 0;
    for (pid_t ended = 0; (ended = waitpid(-1, &status, WNOHANG)) > 0;) {
        if (ended == kernel_) {
            return EndOfKernel(status);
        }
        if (ended == command_) {
            code = ExitCodeOf(status);
        }
    }
    return code;
}

int Init::EndOfKernel(int status) {
    kernel_ = 0;
    const bool isPowerCut = WIFEXITED(status) && WEXITSTATUS(status) == kPowerCutCode;
    Complain(isPowerCut ? "the power was cut" : "the simulated kernel died");
    return isPowerCut ? kExitPowerCut : kExitFailed;
}

// A kernel that dies loses its file system first, which can end the command before the kernel's own end is
// told.
std::optional<int> Init::AwaitDyingKernel() {
    struct stat unused{};
    int status = 0;
    const bool isGone = stat("/proc", &unused) != 0 && (errno == ENOTCONN || errno == ECONNABORTED);
    if (kernel_ == 0 || !isGone || waitpid(kernel_, &status, 0) != kernel_) {
        return std::nullopt;
    }
    return EndOfKernel(status);
}

void Init::TakeRequest() {
    const base::UniqueFd peer(accept4(control_.Get(), nullptr, nullptr, SOCK_CLOEXEC));
    const timeval patience{1, 0};
    setsockopt(peer.Get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    if (const auto request = ReceiveWords(peer.Get())) {
        const Answer answer = devices_->Handle(*request);
        if (answer.error == 0 && request->size() == 3 && request->front() == "fault") {
            StandBefore((*request)[1]);
        }
        SendAnswer(peer.Get(), answer);
    }
}

std::vector<pid_t> Init::OtherProcesses() const {
    std::vector<pid_t> processes;
    for (const auto& entry : fs::directory_iterator("/proc/.kernel")) {
        const int process = std::atoi(entry.path().filename().c_str());
        if (process > 1 && process != kernel_) {
            processes.push_back(process);
        }
    }
    return processes;
}

// Ends what the command left running, unmounts what it left mounted, and has everything written that is not
// yet. The exit code when the kernel is dead or dies over it.
std::optional<int> Init::ShutDown() {
    if (const auto code = AwaitDyingKernel(); kernel_ == 0) {
        return code;
    }
    constexpr int kTries = 2000;
    for (int i = 0; i < kTries; ++i) {
        if (const auto code = Reap(); kernel_ == 0) {
            return code;
        }
        const std::vector<pid_t> others = OtherProcesses();
        if (others.empty()) {
            break;
        }
        for (const pid_t process : others) {
            kill(process, SIGKILL);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    const std::vector<std::string> points = MountPoints();
    for (auto point = points.rbegin(); point != points.rend(); ++point) {
        if (!ownMounts_.contains(*point)) {
            umount2(point->c_str(), 0);
        }
    }
    devices_->ShutDown();
    return std::nullopt;
}

}  // namespace

int RunInit(const Options& options, const State& state, base::UniqueFd launcher) {
    pollfd reader{launcher.Get(), 0, 0};
    if (poll(&reader, 1, 0) != 0) {
        return kExitFailed;  // the launcher died before it could take us along
    }
    Init init(options, state);
    init.Boot(launcher.Get());
    const int code = init.RunCommand();
    return init.ShutDown().value_or(code);
}

}  // namespace simulation
