#include "sweep/tracer.h"

#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <iostream>
#include <optional>
#include <set>

namespace sweep {
namespace {

constexpr unsigned kHangSeconds = 60;
constexpr int kSystemCall = SIGTRAP | 0x80;
constexpr long kOptions = PTRACE_O_TRACESYSGOOD | PTRACE_O_TRACEFORK | PTRACE_O_TRACEVFORK |
                          PTRACE_O_TRACECLONE | PTRACE_O_TRACEEXEC | PTRACE_O_EXITKILL;

[[noreturn]] void RunBody(const std::function<int()>& body) {
    ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
    std::raise(SIGSTOP);
    const int result = body();
    std::cout.flush();
    _exit(result);
}

// The system call that a process is about to make; nothing when it has just made one.
std::optional<long> CallBegun(pid_t process) {
    __ptrace_syscall_info info{};
    if (ptrace(PTRACE_GET_SYSCALL_INFO, process, sizeof info, &info) <= 0 ||
        info.op != PTRACE_SYSCALL_INFO_ENTRY) {
        return std::nullopt;
    }
    return static_cast<long>(info.entry.nr);
}

// Before a system call: it is not made. After it: that is its result.
void SetRegister(pid_t process, std::size_t offset, long value) {
    ptrace(PTRACE_POKEUSER, process, offset, value);
}

void Prevent(pid_t process) {
    SetRegister(process, offsetof(user_regs_struct, orig_rax), -1);
}

void SetError(pid_t process, int error) {
    SetRegister(process, offsetof(user_regs_struct, rax), -error);
}

class Tracer {
  public:
    explicit Tracer(const Harm& harm) : harm_(harm) {}

    Traced Run(const std::function<int()>& body) {
        std::cout.flush();
        caller_ = fork();
        if (caller_ == 0) {
            RunBody(body);
        }
        int status = 0;
        waitpid(caller_, &status, 0);
        ptrace(PTRACE_SETOPTIONS, caller_, nullptr, kOptions);
        known_ = {caller_};
        Continue(caller_, 0);
        while (!known_.empty()) {
            Step();
        }
        return traced_;
    }

  private:
    static void Continue(pid_t process, int signal) { ptrace(PTRACE_SYSCALL, process, nullptr, signal); }

    void Step() {
        int status = 0;
        alarm(kHangSeconds);
        const pid_t process = waitpid(-1, &status, __WALL);
        alarm(0);
        if (process < 0) {
            traced_.isHung = errno == EINTR;
            for (const pid_t left : known_) {
                kill(left, SIGKILL);
            }
            if (!traced_.isHung) {
                known_.clear();
            }
        } else if (WIFSTOPPED(status)) {
            OnStop(process, status);
        } else {
            known_.erase(process);
            traced_.status = process == caller_ ? status : traced_.status;
        }
    }

    void OnStop(pid_t process, int status) {
        const bool isNew = known_.insert(process).second;
        const int signal = WSTOPSIG(status);
        if (signal == kSystemCall) {
            if (const auto call = CallBegun(process)) {
                OnCall(process, *call);
            } else if (failing_.erase(process) > 0) {
                SetError(process, harm_.error);
            }
            Continue(process, 0);
        } else if (status >> 16 != 0 || (isNew && signal == SIGSTOP)) {
            Continue(process, 0);  // it has a child, or is one that begins
        } else {
            Continue(process, signal);
        }
    }

    void OnCall(pid_t process, long call) {
        traced_.calls[call] += process == caller_ ? 1 : 0;
        const bool isVictim = (process == caller_) == (harm_.victim == Victim::kCaller);
        if (!isVictim || (!harm_.of.empty() && std::ranges::find(harm_.of, call) == harm_.of.end())) {
            return;
        }
        const int number = ++counted_;
        if (number < harm_.call || (number > harm_.call && !harm_.stays)) {
            return;
        }
        traced_.isMet = true;
        if (harm_.error == 0) {
            kill(process, SIGKILL);
        } else {
            Prevent(process);
            failing_.insert(process);
        }
    }

    const Harm& harm_;
    int counted_ = 0;
    std::set<pid_t> failing_;  // whose call does not take place
    pid_t caller_ = 0;
    std::set<pid_t> known_;
    Traced traced_;
};

}  // namespace

Traced RunTraced(const std::function<int()>& body, const Harm& harm) {
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    struct sigaction wake{};
    wake.sa_handler = [](int) {};  // ends a wait
    sigaction(SIGALRM, &wake, nullptr);
    return Tracer(harm).Run(body);
}

}  // namespace sweep
