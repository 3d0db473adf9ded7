#include "support/consent.h"

#include <fmt/format.h>
#include <unistd.h>

#include <iostream>

#include "output/answer.h"
#include "support/dry_run.h"
#include "support/failure.h"

namespace cli {
namespace {

struct Question {
    std::string what;
};

void RequireTerminal(const Loss& loss, bool mayAsk) {
    if (!mayAsk || isatty(STDIN_FILENO) == 0 || isatty(STDERR_FILENO) == 0) {
        throw Failure{"refused: this would " + loss.what, "there is no terminal to ask on",
                      "if that may be lost, repeat the command with " + loss.option, std::nullopt,
                      FailureKind::kConsent};
    }
}

void Ask(const std::string& what) {
    PrintRemark(fmt::format("This would {}.\nType \"yes\" to go on: ", Printable(what)));
    std::string answer;
    std::getline(std::cin, answer);
    if (answer != "yes") {
        throw Failure{"not confirmed, nothing was changed", "", "", std::nullopt, FailureKind::kConsent};
    }
}

}  // namespace

void RequireConsent(const Loss& loss, bool given, bool mayAsk) {
    if (IsDryRun()) {
        NoteLoss(loss.what);
        return;
    }
    if (!given) {
        RequireTerminal(loss, mayAsk);
        Ask(loss.what);
    }
}

void Consent::Require(const std::string& what) const {
    if (IsDryRun()) {
        NoteLoss(what);
        return;
    }
    if (!given_ && what != agreed_) {
        RequireTerminal({what, option_}, mayAsk_);
        throw Question{what};
    }
}

void WithConsent(Consent consent, const std::function<void(const Consent&)>& work) {
    for (;;) {
        try {
            work(consent);
            return;
        } catch (const Question& question) {
            consent.agreed_ = question.what;
        }
        Ask(consent.agreed_);
    }
}

}  // namespace cli
