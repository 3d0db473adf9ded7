// A long library call in a process of its own, watched from this one.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <csignal>
#include <functional>
#include <string>

#include "base/unique_fd.h"
#include "support/failure.h"

namespace cli {

// The call runs in its own process group: a Ctrl-C on the terminal reaches this process alone, and no tool
// that the call runs is killed half-way. When this process dies, so does the call.
class BackgroundCall {
  public:
    enum class Event { kOver, kInterrupted, kTimeUp };

    explicit BackgroundCall(const std::function<int()>& call);
    ~BackgroundCall();  // ends the call's process if it is not over
    BackgroundCall(const BackgroundCall&) = delete;
    BackgroundCall& operator=(const BackgroundCall&) = delete;

    // Waits for the call's end, for SIGINT, SIGTERM or SIGHUP, or for the time.
    Event WaitFor(std::chrono::milliseconds time);

    // After kInterrupted: by which signal.
    [[nodiscard]] int Signal() const { return signal_; }

    // What is waited for: the tool that the call runs now, such as "flashcache_create (process 123)".
    [[nodiscard]] std::string AtWork() const;

    // Ends the call and all tools that it runs; it is over then, and failed.
    void End();

    // After kOver: what the call returned; a call that died counts as failed.
    [[nodiscard]] const Outcome& Result() const { return outcome_; }

  private:
    void Collect();

    sigset_t before_{};
    sigset_t awaited_{};
    pid_t child_ = -1;
    int signal_ = 0;
    base::UniqueFd results_;  // read end of the pipe that brings the outcome
    Outcome outcome_{-1, {}, {}, false};
};

// Runs a call in the background to its end: for steps that must not be torn apart. A first Ctrl-C tells what
// is waited for, a second one ends a step that hangs. What the call fills in is lost.
Outcome Uninterrupted(const std::function<int()>& call);

}  // namespace cli
