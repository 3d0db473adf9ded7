#include "simulation/launcher/process.h"

#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <iostream>

#include "base/unique_fd.h"
#include "simulation/common/checked.h"
#include "simulation/launcher/options.h"

namespace simulation {

void Complain(const std::string& what) {
    std::cerr << "vemo-appliance: " + what + "\n";
}

pid_t Fork(const std::function<int()>& body) {
    const pid_t child = Checked(fork(), "a new process");
    if (child != 0) {
        return child;
    }
    int code = kExitFailed;
    try {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        code = body();
    } catch (const std::exception& error) {
        Complain(error.what());
    }
    _exit(code);
}

PidNamespaceScope::PidNamespaceScope()
    : own_(Checked(open("/proc/self/ns/pid", O_RDONLY | O_CLOEXEC), "our PID namespace")) {}

PidNamespaceScope::~PidNamespaceScope() {
    setns(own_.Get(), CLONE_NEWPID);
}

base::UniqueFd TakeSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int number : {SIGCHLD, SIGTERM, SIGHUP, SIGINT, SIGQUIT}) {
        sigaddset(&signals, number);
    }
    Checked(sigprocmask(SIG_BLOCK, &signals, nullptr), "signals");
    return base::UniqueFd(Checked(signalfd(-1, &signals, SFD_CLOEXEC), "signals"));
}

int BecomeCommand(const std::vector<std::string>& command, const std::string& folder) {
    prctl(PR_SET_PDEATHSIG, 0);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    signal(SIGTTOU, SIG_DFL);
    if (chdir(folder.c_str()) != 0 && chdir("/") != 0) {
        ThrowErrno("/");
    }
    std::vector<char*> arguments;
    arguments.reserve(command.size() + 1);
    for (const std::string& word : command) {
        arguments.push_back(const_cast<char*>(word.c_str()));
    }
    arguments.push_back(nullptr);
    execvp(arguments[0], arguments.data());
    const int error = errno;
    Complain(command[0] + ": " + std::strerror(error));
    return error == ENOENT ? kExitNotFound : kExitCannotRun;
}

int ExitCodeOf(int waitStatus) {
    return WIFSIGNALED(waitStatus) ? 128 + WTERMSIG(waitStatus) : WEXITSTATUS(waitStatus);
}

}  // namespace simulation
