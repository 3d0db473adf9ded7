// The admin's consent to a loss.
#pragma once

#include <functional>
#include <string>
#include <utility>

namespace cli {

struct Loss {
    std::string what;    // completes "This would ..."
    std::string option;  // the option that consents, such as "--discard-metadata"
};

// In a dry run nobody is asked: what would be lost is noted, and the work goes on.

// Goes on when `given`; else asks on a terminal. Throws a Failure when there is no consent; `mayAsk` is
// false where nobody reads a question, as with JSON. For work that holds no lock: see WithConsent.
void RequireConsent(const Loss& loss, bool given, bool mayAsk);

// How far the admin has agreed to what work under a lock turns out to lose.
class Consent {
  public:
    // `option` is the one that consents; `given`: it was.
    Consent(std::string option, bool given, bool mayAsk)
        : option_(std::move(option)), given_(given), mayAsk_(mayAsk) {}

    // Goes on when just this loss is agreed to. Throws past all that is held otherwise: a Failure when
    // nobody can be asked, else what WithConsent catches.
    void Require(const std::string& what) const;

  private:
    friend void WithConsent(Consent consent, const std::function<void(const Consent&)>& work);

    std::string option_;
    bool given_;
    bool mayAsk_;
    std::string agreed_;
};

// Does work that may meet a loss under a lock. Nobody may wait for a lock because an admin thinks: the work
// is left, with its locks, for the question, and begun anew when the answer is yes. It asks again when more
// is to be lost by then. What it does before it requires consent must bear being done twice.
void WithConsent(Consent consent, const std::function<void(const Consent&)>& work);

}  // namespace cli
