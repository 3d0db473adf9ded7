// Steps that belong together are not torn apart by Ctrl-C.
#pragma once

#include <csignal>

namespace cli {

// Holds SIGINT, SIGTERM and SIGHUP back while it lives; they are delivered when it goes.
class SignalsHeld {
  public:
    SignalsHeld() {
        sigset_t set;
        sigemptyset(&set);
        for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
            sigaddset(&set, signal);
        }
        pthread_sigmask(SIG_BLOCK, &set, &before_);
    }
    ~SignalsHeld() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    SignalsHeld(const SignalsHeld&) = delete;
    SignalsHeld& operator=(const SignalsHeld&) = delete;

  private:
    sigset_t before_{};
};

}  // namespace cli
