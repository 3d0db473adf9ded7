// Turns the command line into the verb that was asked for.
#pragma once

#include <functional>
#include <optional>
#include <vector>

#include "support/failure.h"
#include "verbs/verb.h"

namespace cli {

// What the command line asks for: a text to print (help), an action, or a refusal.
struct Request {
    std::string text;
    std::function<void(Context&)> action;
    std::optional<Failure> refusal;
};

// Fills the context's general options and the arguments of the verb that is named.
Request Parse(int argc, char** argv, const std::vector<Verb>& verbs, Context& context);

}  // namespace cli
