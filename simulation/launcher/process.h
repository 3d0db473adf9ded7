#pragma once

#include <sched.h>
#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

#include "base/unique_fd.h"

namespace simulation {

// Says on standard error what went wrong.
void Complain(const std::string& what);

// Forks. The child, which is killed when we are, runs `body` and ends with what that returns, or with
// kExitFailed and a message when it throws.
pid_t Fork(const std::function<int()>& body);

// What the appliance has to itself, beside its processes and mounts.
inline constexpr int kOwnNamespaces = CLONE_NEWUTS | CLONE_NEWIPC | CLONE_NEWNET;

// Children forked while this lives go into the PID namespace that unshare or setns has chosen; later ones
// into our own again, since none can be made in one whose init has ended.
class PidNamespaceScope {
  public:
    PidNamespaceScope();
    ~PidNamespaceScope();
    PidNamespaceScope(const PidNamespaceScope&) = delete;
    PidNamespaceScope& operator=(const PidNamespaceScope&) = delete;

  private:
    base::UniqueFd own_;
};

// Blocks the signals that launcher and init take through the descriptor returned: their child's end, and the
// requests to end or to pass on.
base::UniqueFd TakeSignals();

// Becomes a command, found by PATH, in `folder` (in "/" where that is not there), with no signal blocked.
// Returns, with a message, the exit code that tells why it failed.
int BecomeCommand(const std::vector<std::string>& command, const std::string& folder);

// A process' end as a shell tells it: its exit status, or 128 and the signal that killed it.
int ExitCodeOf(int waitStatus);

}  // namespace simulation
