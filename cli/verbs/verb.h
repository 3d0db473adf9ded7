// What a verb is: data that the parser, the help, completion and manual pages are made from.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "output/form.h"

namespace cli {

// What all verbs share: the general options, and what became of the work.
struct Context {
    bool json = false;
    bool verbose = false;
    bool dryRun = false;
    Form form;            // of all answers
    bool failed = false;  // part of the work failed, and the printed answer says what
    bool saidNo = false;  // the answer to the verb's question is "no"
    // Of a verb that has exit codes of its own: what its answer says, and what stands for every failure.
    std::optional<int> exitCode;
    std::optional<int> failureCode;
};

// What a shell may offer for an argument.
enum class Completion { kNone, kCache, kEntry, kCheck, kMute, kDevice, kFile, kFolder };

// Where an argument's value goes; a size in bytes is typed as 512M or 120G.
struct ByteSize {
    std::uint64_t bytes = 0;
};
using Target = std::variant<bool*, std::string*, std::vector<std::string>*, std::int32_t*, ByteSize*>;

struct Range {
    std::int32_t lowest = 0;
    std::int32_t highest = 0;
};

// NOLINTBEGIN(readability-redundant-member-init): g++ warns of a member left out, unless it has one.

// One argument; a flag when it goes to a bool. What its target holds before is the default.
struct Argument {
    std::string name;  // "CACHE" is positional, "--size" an option
    std::string help;
    Target target;
    bool required = false;
    bool showsDefault = false;
    std::vector<std::string> choices = {};                           // all values there are; empty: any
    Range range = {INT32_MIN, INT32_MAX};                            // of a number
    bool isFolder = false;                                           // it must name a folder that exists
    std::function<std::string(const std::string&)> check = nullptr;  // why a text is refused, else empty
    std::vector<std::string> needs = {};                             // other arguments, by name
    std::vector<std::string> excludes = {};
    Completion completion = Completion::kNone;
    std::string valueName = {};  // what the help calls the value of an option; empty: after its type
};

inline bool IsOption(const Argument& argument) {
    return argument.name.starts_with('-');
}

inline bool IsFlag(const Argument& argument) {
    return std::holds_alternative<bool*>(argument.target);
}

inline bool MayRepeat(const Argument& argument) {
    return std::holds_alternative<std::vector<std::string>*>(argument.target);
}

// "-o,--output" has two.
std::vector<std::string> SpellingsOf(const Argument& argument);

// The first sentence of a help, for where there is little room.
std::string InShort(const std::string& help);

struct Verb {
    std::string name;
    std::string help;
    std::string example = {};
    std::vector<Argument> arguments = {};
    std::function<void(Context&)> action = nullptr;
    bool onlyReports = false;  // it changes nothing
    bool canDryRun = true;     // of one that changes something, if only with some of its options
    std::string no = {};       // what "no" means, where the exit code answers a question; empty: it does not
    std::vector<Verb> verbs = {};  // of a group, which has no action of its own
    // Exit codes of its own, a line each for the help, and the one that stands for every failure.
    std::string exits = {};
    std::optional<int> failureCode = {};
};

// NOLINTEND(readability-redundant-member-init)

// A verb whose arguments go into Options: `declare` names them, `act` works with them.
template <typename Options, typename Declare, typename Act>
Verb MakeVerb(std::string name, std::string help, std::string example, Declare declare, Act act) {
    const auto options = std::make_shared<Options>();
    return {std::move(name), std::move(help), std::move(example), declare(*options),
            [options, act](Context& context) { act(context, *options); }};
}

inline Verb MakeGroup(std::string name, std::string help, std::vector<Verb> verbs) {
    return {.name = std::move(name), .help = std::move(help), .verbs = std::move(verbs)};
}

// A verb that changes nothing.
inline Verb Report(Verb verb) {
    verb.onlyReports = true;
    verb.canDryRun = false;
    return verb;
}

// A verb that changes nothing and answers a question by its exit code, too; `no` says what "no" means.
inline Verb Question(Verb verb, std::string no) {
    verb.no = std::move(no);
    return Report(std::move(verb));
}

inline constexpr const char* kCacheHelp =
    "the cache: its name, cachedev_N, or the path of its cache device, SSD, volume or mount";

// The argument that most verbs take.
inline Argument CacheArgument(std::string& cache) {
    return {.name = "CACHE",
            .help = kCacheHelp,
            .target = &cache,
            .required = true,
            .completion = Completion::kCache};
}

// Options that all verbs take, which go into the context.
std::vector<Argument> GeneralArguments(Context& context);

// Of verbs that change something.
inline constexpr const char* kDryRunHelp =
    "tell the steps, the programs that they would run and what would be lost, and change nothing";

// What the exit codes mean, a line each: those of all verbs, and those that a verb has of its own.
inline constexpr const char* kExitCodes =
    "  0  done; the answer to a question is yes\n"
    "  1  failed, in part or as a whole, or the answer could not be written\n"
    "  2  wrong usage, nothing was tried\n"
    "  3  the answer to a question is no; the verbs that ask one say so in their help\n"
    "  doctor, as monitoring expects: 0 well, 1 warning, 2 critical, 3 could not tell\n";
std::string ExitCodesOf(const Verb& verb);

// A verb without arguments.
inline std::vector<Argument> NoArguments() {
    return {};
}

}  // namespace cli
