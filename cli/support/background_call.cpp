#include "support/background_call.h"

#include <fmt/format.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <ctime>
#include <system_error>
#include <utility>

#include "base/pipe.h"
#include "output/answer.h"
#include "support/child.h"

namespace cli {
namespace {

// How long a process may take to die; one that waits for a dead disk does not die at all.
constexpr std::chrono::seconds kLongestDeath(5);

// An Outcome as it goes through the pipe.
struct Message {
    int result = -1;
    int code = 0;
    int line = 0;
    std::array<char, 128> file{};
    std::array<char, 512> reason{};
};

template <std::size_t kSize>
void CopyCut(const std::string& text, std::array<char, kSize>& out) {
    text.copy(out.data(), kSize - 1);
}

[[noreturn]] void RunAsChild(const std::function<int()>& call, pid_t parent, int results,
                             const sigset_t& mask) {
    setpgid(0, 0);
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) {
        _exit(1);  // it died before we asked to be told
    }
    // The library's log may go to a terminal that stops background writers.
    std::signal(SIGTTOU, SIG_IGN);
    pthread_sigmask(SIG_SETMASK, &mask, nullptr);
    const Outcome outcome = Attempt(call);
    Message message{outcome.result, outcome.slot.code, outcome.slot.line, {}, {}};
    CopyCut(outcome.slot.file, message.file);
    CopyCut(outcome.reason, message.reason);
    const bool told = write(results, &message, sizeof message) == static_cast<ssize_t>(sizeof message);
    _exit(told ? 0 : 1);
}

// Waits for all processes of a group that are ours; false when one is still there after some seconds.
bool AwaitGroup(pid_t group) {
    using std::chrono::steady_clock;
    sigset_t childEnds;
    sigemptyset(&childEnds);
    sigaddset(&childEnds, SIGCHLD);
    const auto deadline = steady_clock::now() + kLongestDeath;
    for (;;) {
        const pid_t ended = waitpid(-group, nullptr, WNOHANG);
        if (ended < 0) {
            return true;
        }
        if (ended == 0) {
            if (steady_clock::now() >= deadline) {
                return false;
            }
            const timespec limit{0, 100000000};
            sigtimedwait(&childEnds, nullptr, &limit);
        }
    }
}

}  // namespace

BackgroundCall::BackgroundCall(const std::function<int()>& call) {
    base::Pipe results = base::MakePipe();
    if (!results.read) {
        throw std::system_error(errno, std::generic_category(), "pipe");
    }
    results_ = std::move(results.read);
    sigemptyset(&awaited_);
    for (const int signal : {SIGCHLD, SIGINT, SIGTERM, SIGHUP}) {
        sigaddset(&awaited_, signal);
    }
    pthread_sigmask(SIG_BLOCK, &awaited_, &before_);
    const pid_t self = getpid();
    child_ = fork();
    if (child_ == 0) {
        RunAsChild(call, self, results.write.Get(), before_);
    }
    if (child_ < 0) {
        const int error = errno;
        pthread_sigmask(SIG_SETMASK, &before_, nullptr);
        throw std::system_error(error, std::generic_category(), "fork");
    }
    setpgid(child_, child_);  // whoever comes first: the group must be there before it is ended
}

BackgroundCall::~BackgroundCall() {
    if (child_ > 0) {
        kill(child_, SIGKILL);
        waitpid(child_, nullptr, 0);
    }
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
}

BackgroundCall::Event BackgroundCall::WaitFor(std::chrono::milliseconds time) {
    const timespec limit{time.count() / 1000, (time.count() % 1000) * 1000000};
    signal_ = sigtimedwait(&awaited_, nullptr, &limit);
    if (child_ > 0 && waitpid(child_, nullptr, WNOHANG) == child_) {
        child_ = -1;
        Collect();
    }
    if (child_ < 0) {
        return Event::kOver;
    }
    return signal_ > 0 && signal_ != SIGCHLD ? Event::kInterrupted : Event::kTimeUp;
}

std::string BackgroundCall::AtWork() const {
    const std::string tool = ChildOf(child_);
    return tool.empty() ? fmt::format("the library (process {})", child_) : tool;
}

void BackgroundCall::End() {
    const std::string what = AtWork();
    // Its tools must be gone before anybody looks at what became of the cache: they become ours to wait for.
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    kill(-child_, SIGKILL);
    const bool isGone = AwaitGroup(child_);
    child_ = -1;
    outcome_ = {-1, {}, fmt::format("{} did not end by itself and was ended on request", what), true};
    if (!isGone) {
        outcome_.reason += "; it hangs in the kernel and is still there";
    }
}

void BackgroundCall::Collect() {
    Message message;
    if (read(results_.Get(), &message, sizeof message) == static_cast<ssize_t>(sizeof message)) {
        outcome_ = {
            message.result, {message.code, message.file.data(), message.line}, message.reason.data(), false};
    }
}

Outcome Uninterrupted(const std::function<int()>& call) {
    BackgroundCall running(call);
    bool isTold = false;
    for (;;) {
        const auto event = running.WaitFor(std::chrono::hours(1));
        if (event == BackgroundCall::Event::kOver) {
            return running.Result();
        }
        if (event != BackgroundCall::Event::kInterrupted) {
            continue;
        }
        if (!isTold) {
            Note(fmt::format(
                "waiting for {}, which must not be torn apart; press Ctrl-C again to end it all the same",
                running.AtWork()));
            isTold = true;
        } else if (running.Signal() != SIGHUP) {  // a closed terminal sends more than one
            running.End();
            return running.Result();
        }
    }
}

}  // namespace cli
