#include "support/failure.h"

#include <fmt/format.h>

#include <thread>

#include "support/library_log.h"
#include "vemoflashcache.h"

namespace cli {
namespace {

constexpr int kProgramFailed = 0x8100;

}  // namespace

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
        case kProgramFailed:
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
    LogCapture log;
    // The slot is per thread and is never cleared, so a thread of its own begins with an empty one.
    std::thread worker([&] {
        outcome.result = call();
        outcome.slot = {VLIBCErrGet(), VLIBCErrorGetFile(), VLIBCErrorGetLine()};
    });
    worker.join();
    outcome.reason = log.Reason();
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

std::optional<bool> YesOrNo(const Outcome& outcome) {
    if (outcome.result == 1) {
        return true;
    }
    return outcome.reason.empty() && outcome.slot.code == 0 ? std::optional(false) : std::nullopt;
}

Failure LibraryFailure(std::string what, const Outcome& outcome, std::string next) {
    const int code = outcome.slot.code;
    std::string why = outcome.reason;
    // A tool's own words say it better than that some program failed.
    if (code != 0 && (why.empty() || code != kProgramFailed)) {
        why = Meaning(code) + (why.empty() ? "" : "; " + why);
    }
    why += fmt::format("{}-v shows what the library logs", why.empty() ? "" : "; ");
    return {std::move(what), std::move(why), std::move(next), outcome.slot};
}

}  // namespace cli
