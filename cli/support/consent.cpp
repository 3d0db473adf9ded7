#include "support/consent.h"

#include <fmt/format.h>
#include <unistd.h>

#include <iostream>

#include "output/answer.h"
#include "support/failure.h"

namespace cli {

void RequireConsent(const Loss& loss, bool given, bool mayAsk) {
    if (given) {
        return;
    }
    if (!mayAsk || isatty(STDIN_FILENO) == 0 || isatty(STDERR_FILENO) == 0) {
        throw Failure{"refused: this would " + loss.what, "there is no terminal to ask on",
                      "if that may be lost, repeat the command with " + loss.option, std::nullopt,
                      FailureKind::kConsent};
    }
    PrintRemark(fmt::format("This would {}.\nType \"yes\" to go on: ", Printable(loss.what)));
    std::string answer;
    std::getline(std::cin, answer);
    if (answer != "yes") {
        throw Failure{"not confirmed, nothing was changed", "", "", std::nullopt, FailureKind::kConsent};
    }
}

}  // namespace cli
