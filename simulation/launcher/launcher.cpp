#include "simulation/launcher/launcher.h"

#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/signalfd.h>
#include <sys/wait.h>

#include <fstream>
#include <optional>
#include <stdexcept>
#include <string_view>

#include "base/pipe.h"
#include "base/unique_fd.h"
#include "simulation/common/checked.h"
#include "simulation/common/message.h"
#include "simulation/launcher/init.h"
#include "simulation/launcher/loop_device.h"
#include "simulation/launcher/process.h"
#include "simulation/launcher/state.h"

namespace simulation {

namespace {

void RequireDevice(const char* path, const char* module) {
    if (!base::UniqueFd(open(path, O_RDWR | O_CLOEXEC))) {
        throw std::runtime_error(std::string(path) + " cannot be opened: load its module (modprobe " +
                                 module + "); in a container, run that privileged (docker run --privileged)");
    }
}

void RequireMachine() {
    if (geteuid() != 0) {
        throw std::runtime_error("this needs root (mounts, loop devices): run it with sudo");
    }
    if (access(kControlSocket, F_OK) == 0) {
        throw std::runtime_error("this is an appliance already; run the command as it is");
    }
    RequireDevice("/dev/fuse", "fuse");
    RequireDevice("/dev/loop-control", "loop");
    std::ifstream file("/proc/filesystems");
    const std::string known{std::istreambuf_iterator<char>(file), {}};
    if (known.find("\toverlay\n") == std::string::npos && access("/lib/modules", F_OK) != 0) {
        throw std::runtime_error("the machine's kernel has no overlay file system");
    }
}

// Gives the terminal back to our process group when the command has taken it for its own.
class Terminal {
  public:
    Terminal() : ours_(tcgetpgrp(fd_.Get())) { signal(SIGTTOU, SIG_IGN); }
    ~Terminal() {
        if (ours_ == getpgrp()) {
            tcsetpgrp(fd_.Get(), ours_);
        }
    }
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

  private:
    base::UniqueFd fd_{open("/dev/tty", O_RDWR | O_CLOEXEC)};
    pid_t ours_;
};

// Ends a FUSE connection whose file system does not come down by itself.
void AbortConnection(const std::string& number) {
    const pid_t child = Fork([&] {
        Checked(unshare(CLONE_NEWNS), "a mount namespace");
        const char* const folder = "/sys/fs/fuse/connections";
        Checked(mount("", "/", nullptr, MS_REC | MS_PRIVATE, nullptr), "/");
        mount("fusectl", folder, "fusectl", 0, nullptr);
        std::ofstream(std::string(folder) + "/" + number + "/abort") << "1";
        return 0;
    });
    waitpid(child, nullptr, 0);
}

// Watches over init: passes signals on to it, waits for its end, and helps that along if need be.
class InitWatch {
  public:
    InitWatch(pid_t init, base::UniqueFd pipe, base::UniqueFd signals)
        : init_(init), pipe_(std::move(pipe)), signals_(std::move(signals)) {}

    int Wait() {
        constexpr int kPatienceMs = 5000;
        for (;;) {
            pollfd sources[] = {{signals_.Get(), POLLIN, 0}, {ending_ ? -1 : pipe_.Get(), POLLIN, 0}};
            if (poll(sources, std::size(sources), ending_ ? kPatienceMs : -1) == 0) {
                AbortConnection(connection_);
            }
            if (sources[1].revents != 0) {
                ReadPipe();
            }
            if (sources[0].revents != 0) {
                if (const auto code = TakeSignal()) {
                    return *code;
                }
            }
        }
    }

  private:
    // Init tells its connection; that the pipe ends means that init does.
    void ReadPipe() {
        char text[32];
        const ssize_t length = read(pipe_.Get(), text, sizeof text);
        if (length > 0) {
            const std::string_view told(text, static_cast<size_t>(length));
            connection_ = told.substr(0, told.find('\n'));
        } else {
            ending_ = true;
        }
    }

    std::optional<int> TakeSignal() {
        signalfd_siginfo info{};
        if (read(signals_.Get(), &info, sizeof info) != sizeof info) {
            return std::nullopt;
        }
        if (info.ssi_signo != SIGCHLD) {
            if (info.ssi_code != SI_KERNEL) {  // what the terminal sends, the command got itself
                kill(init_, static_cast<int>(info.ssi_signo));
            }
            return std::nullopt;
        }
        int status = 0;
        if (waitpid(init_, &status, WNOHANG) != init_) {
            return std::nullopt;
        }
        if (WIFSIGNALED(status)) {
            Complain("the appliance was killed");
        }
        return ExitCodeOf(status);
    }

    pid_t init_;
    base::UniqueFd pipe_;
    base::UniqueFd signals_;
    std::string connection_;
    bool ending_ = false;
};

pid_t ForkInit(const std::function<int()>& body) {
    const PidNamespaceScope scope;
    if (unshare(CLONE_NEWPID) != 0) {
        throw std::runtime_error("new namespaces are not allowed here; in a container, run that privileged");
    }
    return Fork(body);
}

}  // namespace

int RunAppliance(const Options& options) {
    RequireMachine();
    const LoopDevicesOfMachine loops;
    const State state(options.stateFolder);
    const Terminal terminal;
    base::UniqueFd signals = TakeSignals();
    base::Pipe result = base::MakePipe();
    if (!result.read) {
        ThrowErrno("a pipe");
    }
    const pid_t init = ForkInit([&] {
        result.read.Reset();
        return RunInit(options, state, std::move(result.write));
    });
    result.write.Reset();
    state.Publish(getpid(), init);
    return InitWatch(init, std::move(result.read), std::move(signals)).Wait();
}

}  // namespace simulation
