#include "support/background_call.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <ctime>
#include <system_error>

namespace cli {
namespace {

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

}  // namespace

BackgroundCall::BackgroundCall(const std::function<int()>& call) {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        throw std::system_error(errno, std::generic_category(), "pipe");
    }
    results_ = ends[0];
    sigemptyset(&awaited_);
    for (const int signal : {SIGCHLD, SIGINT, SIGTERM, SIGHUP}) {
        sigaddset(&awaited_, signal);
    }
    pthread_sigmask(SIG_BLOCK, &awaited_, &before_);
    const pid_t self = getpid();
    child_ = fork();
    if (child_ == 0) {
        RunAsChild(call, self, ends[1], before_);
    }
    const int error = errno;
    close(ends[1]);
    if (child_ < 0) {
        close(results_);
        pthread_sigmask(SIG_SETMASK, &before_, nullptr);
        throw std::system_error(error, std::generic_category(), "fork");
    }
}

BackgroundCall::~BackgroundCall() {
    if (child_ > 0) {
        kill(child_, SIGKILL);
        waitpid(child_, nullptr, 0);
    }
    close(results_);
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
}

BackgroundCall::Event BackgroundCall::WaitFor(std::chrono::milliseconds time) {
    const timespec limit{time.count() / 1000, (time.count() % 1000) * 1000000};
    const int signal = sigtimedwait(&awaited_, nullptr, &limit);
    if (child_ > 0 && waitpid(child_, nullptr, WNOHANG) == child_) {
        child_ = -1;
        Collect();
    }
    if (child_ < 0) {
        return Event::kOver;
    }
    return signal > 0 && signal != SIGCHLD ? Event::kInterrupted : Event::kTimeUp;
}

void BackgroundCall::Collect() {
    Message message;
    if (read(results_, &message, sizeof message) == static_cast<ssize_t>(sizeof message)) {
        outcome_ = {message.result, {message.code, message.file.data(), message.line}, message.reason.data()};
    }
}

Outcome Uninterrupted(const std::function<int()>& call) {
    BackgroundCall running(call);
    while (running.WaitFor(std::chrono::hours(1)) != BackgroundCall::Event::kOver) {
    }
    return running.Result();
}

}  // namespace cli
