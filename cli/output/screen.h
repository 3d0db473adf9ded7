// The whole terminal as a screen to draw on, which gives back the terminal as it was.
#pragma once

#include <termios.h>

#include <chrono>
#include <csignal>
#include <string>
#include <vector>

#include "base/unique_fd.h"
#include "output/terminal.h"

namespace cli {

// Why standard input and output are no screen: "standard output is no terminal"; empty: they are one.
std::string WhyNoScreen();

// While it lives, what is typed comes at once and unseen, and the signals that end or stop a program, or tell
// of a resized window, come as events: there is no other way out past the destructor.
class Screen {
  public:
    struct Event {
        std::string keys;      // that were typed; without the sequences of arrows and the like
        int endSignal = 0;     // which asks for the end; 0: none
        bool isReady = false;  // the descriptor can be read
    };

    Screen();
    ~Screen();
    Screen(const Screen&) = delete;
    Screen& operator=(const Screen&) = delete;

    // Waits for something to happen, at the screen or at the descriptor, or for the time. A stop is done
    // here, and over when it returns.
    Event Wait(int descriptor, std::chrono::milliseconds time);

    [[nodiscard]] static TerminalSize Size();

    // In place of all that stands there; the lines must fit.
    static void Draw(const std::vector<std::string>& lines);

  private:
    void Enter();
    void Leave();
    void Stop();
    int TakeSignal();

    termios before_{};
    sigset_t maskBefore_{};
    base::UniqueFd signals_;
};

}  // namespace cli
