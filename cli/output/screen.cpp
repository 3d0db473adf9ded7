#include "output/screen.h"

#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>

#include "output/answer.h"

namespace cli {
namespace {

constexpr const char* kEnter = "\x1b[?1049h\x1b[?25l\x1b[?7l\x1b[2J";  // other screen, no cursor, no wrapping
constexpr const char* kLeave = "\x1b[?7h\x1b[?25h\x1b[?1049l";

constexpr std::array kSignals = {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP, SIGWINCH};

// What was typed; a sequence that begins with an escape holds letters, but they are no keys.
std::string KeysIn(const std::string& typed) {
    return typed.substr(0, typed.find('\x1b'));
}

}  // namespace

std::string WhyNoScreen() {
    for (const auto& [fd, name] : {std::pair{STDIN_FILENO, "input"}, std::pair{STDOUT_FILENO, "output"}}) {
        if (isatty(fd) == 0) {
            return std::string("standard ") + name + " is no terminal";
        }
    }
    return "";
}

Screen::Screen() {
    sigset_t mask;
    sigemptyset(&mask);
    for (const int signal : kSignals) {
        sigaddset(&mask, signal);
    }
    signals_ = base::UniqueFd(signalfd(-1, &mask, SFD_CLOEXEC | SFD_NONBLOCK));
    if (!signals_ || tcgetattr(STDIN_FILENO, &before_) != 0) {
        throw std::system_error(errno, std::generic_category(), "terminal");
    }
    pthread_sigmask(SIG_BLOCK, &mask, &maskBefore_);
    Enter();
}

Screen::~Screen() {
    Leave();
    pthread_sigmask(SIG_SETMASK, &maskBefore_, nullptr);
}

void Screen::Enter() {
    termios raw = before_;
    raw.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
    raw.c_cc[VMIN] = 1;
    raw.c_cc[VTIME] = 0;
    tcsetattr(STDIN_FILENO, TCSAFLUSH, &raw);
    PrintText(kEnter);
}

void Screen::Leave() {
    PrintText(kLeave);
    tcsetattr(STDIN_FILENO, TCSAFLUSH, &before_);
}

void Screen::Stop() {
    Leave();
    raise(SIGSTOP);
    Enter();
}

int Screen::TakeSignal() {
    signalfd_siginfo signal{};
    const bool isOne = read(signals_.Get(), &signal, sizeof signal) == static_cast<ssize_t>(sizeof signal);
    const int number = isOne ? static_cast<int>(signal.ssi_signo) : 0;
    if (number == SIGTSTP) {
        Stop();
    }
    return number == SIGTSTP || number == SIGWINCH ? 0 : number;
}

Screen::Event Screen::Wait(int descriptor, std::chrono::milliseconds time) {
    std::array<pollfd, 3> ends = {
        {{STDIN_FILENO, POLLIN, 0}, {signals_.Get(), POLLIN, 0}, {descriptor, POLLIN, 0}}};
    Event event;
    if (poll(ends.data(), ends.size(), static_cast<int>(time.count())) <= 0) {
        return event;
    }
    if (ends[1].revents != 0) {
        event.endSignal = TakeSignal();
    }
    if (ends[0].revents != 0) {
        std::array<char, 64> typed{};
        const ssize_t size = read(STDIN_FILENO, typed.data(), typed.size());
        if (size > 0) {
            event.keys = KeysIn(std::string(typed.data(), static_cast<std::size_t>(size)));
        } else if (event.endSignal == 0) {
            event.endSignal = SIGHUP;  // the terminal has gone
        }
    }
    event.isReady = ends[2].revents != 0;
    return event;
}

TerminalSize Screen::Size() {
    return SizeOfTerminal(STDOUT_FILENO);
}

void Screen::Draw(const std::vector<std::string>& lines) {
    std::string text = "\x1b[H";
    for (const auto& line : lines) {
        text += (&line == &lines.front() ? "" : "\r\n") + line + "\x1b[K";
    }
    PrintText(text + "\x1b[J");
}

}  // namespace cli
