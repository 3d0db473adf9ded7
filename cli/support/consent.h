// The admin's consent to a loss.
#pragma once

#include <string>

namespace cli {

struct Loss {
    std::string what;    // completes "This would ..."
    std::string option;  // the option that consents, such as "--discard-metadata"
};

// Goes on when `given`; else asks on a terminal. Throws a Failure when there is no consent; `mayAsk` is
// false where nobody reads a question, as with JSON.
void RequireConsent(const Loss& loss, bool given, bool mayAsk);

}  // namespace cli
