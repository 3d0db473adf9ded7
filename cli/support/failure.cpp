#include "support/failure.h"

#include <thread>

#include "vemoflashcache.h"

namespace cli {

std::string Meaning(int code) {
    switch (code) {
        case 0x0600:
            return "no such cache is running";
        case 0x0900:
            return "a file is missing or cannot be opened";
        case 0x0B00:
            return "a file could not be written in full";
        case 0x0D00:
            return "the library refused an argument";
        case 0x2000:
            return "a section of the configuration is missing";
        case 0x8100:
            return "an external program failed";
        default:
            return "an error of the platform";
    }
}

std::string KindText(FailureKind kind) {
    switch (kind) {
        case FailureKind::kUsage:
            return "usage";
        case FailureKind::kNotFound:
            return "not_found";
        case FailureKind::kInUse:
            return "in_use";
        case FailureKind::kConsent:
            return "consent_needed";
        case FailureKind::kRefused:
            return "refused";
        case FailureKind::kUnknownState:
            return "unknown_state";
        case FailureKind::kDataLost:
            return "data_lost";
        case FailureKind::kConfiguration:
            return "configuration";
        case FailureKind::kFailed:
            break;
    }
    return "failed";
}

Outcome Attempt(const std::function<int()>& call) {
    Outcome outcome;
    // The slot is per thread and is never cleared, so a thread of its own begins with an empty one.
    std::thread worker([&] {
        outcome.result = call();
        outcome.slot = {VLIBCErrGet(), VLIBCErrorGetFile(), VLIBCErrorGetLine()};
    });
    worker.join();
    return outcome;
}

void After(const std::string& fate, const std::function<void()>& step) {
    try {
        step();
    } catch (Failure& failure) {
        failure.what = fate + failure.what;
        throw;
    }
}

Failure LibraryFailure(std::string what, const Outcome& outcome, std::string next) {
    const std::string log = "the library's lines in the system log tell more; -v shows them here";
    std::string why = outcome.slot.code == 0 ? log : Meaning(outcome.slot.code) + "; " + log;
    return {std::move(what), std::move(why), std::move(next), outcome.slot};
}

}  // namespace cli
