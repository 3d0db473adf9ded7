#include "simulation/launcher/client.h"

#include <sched.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "base/unique_fd.h"
#include "simulation/common/checked.h"
#include "simulation/launcher/process.h"
#include "simulation/launcher/state.h"

namespace simulation {

namespace {

pid_t FirstChildOf(pid_t process) {
    const std::string number = std::to_string(process);
    pid_t child = 0;
    std::ifstream("/proc/" + number + "/task/" + number + "/children") >> child;
    return child;
}

base::UniqueFd Connect(const Which& which) {
    pid_t init = 0;
    if (!which.stateFolder.empty()) {
        init = RunningInit(which.stateFolder);
    } else if (which.process != 0) {
        init = FirstChildOf(which.process);
    } else if (access(kControlSocket, F_OK) != 0) {
        throw std::runtime_error("this is not an appliance: say which one, with --state or --pid");
    }
    const bool outside = !which.stateFolder.empty() || which.process != 0;
    const std::string root = outside ? "/proc/" + std::to_string(init) + "/root" : "";
    base::UniqueFd connection = ConnectTo(root + kControlSocket);
    if (!connection) {
        throw std::runtime_error("no appliance is running there");
    }
    return connection;
}

}  // namespace

std::string SendRequest(const Which& which, const Words& request) {
    const base::UniqueFd connection = Connect(which);
    const Answer answer = Ask(connection.Get(), request);
    if (answer.error != 0) {
        throw std::runtime_error(answer.text);
    }
    return answer.text;
}

int Enter(const Which& which, const std::vector<std::string>& command) {
    const base::UniqueFd connection = Connect(which);
    ucred init{};
    socklen_t length = sizeof init;
    Checked(getsockopt(connection.Get(), SOL_SOCKET, SO_PEERCRED, &init, &length), "the appliance");
    const std::string folder = std::filesystem::current_path();
    const base::UniqueFd process(
        static_cast<int>(Checked(syscall(SYS_pidfd_open, init.pid, 0), "the appliance")));
    const PidNamespaceScope scope;
    Checked(setns(process.Get(), CLONE_NEWPID), "the appliance");
    const pid_t child = Fork([&] {
        Checked(unshare(CLONE_FS), "a working folder of its own");
        Checked(setns(process.Get(), CLONE_NEWNS | kOwnNamespaces), "the appliance");
        return BecomeCommand(command, folder);
    });
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return ExitCodeOf(status);
}

}  // namespace simulation
