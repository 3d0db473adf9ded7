// How a verb fails: it throws what failed, why, and what to do next.
#pragma once

#include <functional>
#include <optional>
#include <string>

namespace cli {

// What a failing library call left in the platform's error slot; code 0: nothing.
struct ErrorSlot {
    int code = 0;
    std::string file;
    int line = 0;
};

// The meaning of an error code for an admin.
std::string Meaning(int code);

// What programs may tell failures by; in JSON the name that KindText gives.
enum class FailureKind {
    kFailed,         // a step failed; the text says what became of it
    kUsage,          // the command line is wrong; nothing was tried
    kNotFound,       // no such cache, entry, device or list
    kInUse,          // mounted, held open, or another process works on it
    kConsent,        // it would lose something, and nobody consented
    kRefused,        // as things are it would be unsafe, or cannot be
    kUnknownState,   // what it hangs on could not be read
    kDataLost,       // blocks are lost, with an earlier consent to it
    kConfiguration,  // the configuration is damaged or cannot be read
};
std::string KindText(FailureKind kind);

struct Failure {
    std::string what;
    std::string why;
    std::string next;
    std::optional<ErrorSlot> slot = std::nullopt;
    FailureKind kind = FailureKind::kFailed;
};

// Runs a step after which a failure must first tell what became of the cache: "the cache X is up, but ...".
void After(const std::string& fate, const std::function<void()>& step);

// A library call's result and what it recorded.
struct Outcome {
    int result = 0;
    ErrorSlot slot;
    std::string reason;    // of a failure: a tool's last words or the library's; empty: not known
    bool isEnded = false;  // on request, before it had a result
};

// Runs a library call so that what it records can be told from what others recorded before.
Outcome Attempt(const std::function<int()>& call);

// What a function says that answers 1 or 0; nothing where its 0 stands for a failure, which the log or the
// error slot then tells.
std::optional<bool> YesOrNo(const Outcome& outcome);

// The failure of a library call: what the log and its error slot say of it.
Failure LibraryFailure(std::string what, const Outcome& outcome, std::string next);

}  // namespace cli
