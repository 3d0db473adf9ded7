#include "parser/parser.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <map>
#include <set>
#include <string_view>

#include "base/nearest.h"

// The one file that knows the parser library: it costs more to compile than all verbs together.
namespace cli {
namespace {

constexpr const char* kFooter =
    "\n"
    "Answers go to standard output, remarks, questions and errors to standard error;\n"
    "with --json everything is one JSON object on standard output, errors too.\n"
    "A flush that shows its progress puts such an object a line ahead of its answer.\n"
    "A table that is too wide for its terminal leaves out columns: --wide shows them.\n"
    "\"vemocachectl help VERB\" tells more about a verb.";

// Turns "512M" or "120G" (units of 1024) into bytes.
std::string ReadSize(std::string& text) {
    constexpr const char* kRefusal = "not a size such as 512M or 120G";
    // A negative number would be read as a huge one.
    if (text.empty() || text.front() < '0' || text.front() > '9') {
        return kRefusal;
    }
    try {
        CLI::AsSizeValue(false)(text);
        return "";
    } catch (const CLI::ValidationError&) {
        return kRefusal;
    }
}

CLI::Option* Declare(CLI::App& app, const Argument& argument) {
    return std::visit(
        [&](auto* target) -> CLI::Option* {
            using Kind = std::remove_pointer_t<decltype(target)>;
            if constexpr (std::is_same_v<Kind, bool>) {
                return app.add_flag(argument.name, *target, argument.help);
            } else if constexpr (std::is_same_v<Kind, ByteSize>) {
                return app.add_option(argument.name, target->bytes, argument.help)
                    ->transform(CLI::Validator(ReadSize, "SIZE"));
            } else {
                return app.add_option(argument.name, *target, argument.help);
            }
        },
        argument.target);
}

void Restrict(CLI::Option& option, const Argument& argument) {
    option.required(argument.required);
    if (argument.showsDefault) {
        option.capture_default_str();
    }
    if (!argument.valueName.empty()) {
        option.type_name(argument.valueName);
    }
    // An option that may be repeated takes one value each time.
    if (IsOption(argument) && MayRepeat(argument)) {
        option.allow_extra_args(false);
    }
    if (!argument.choices.empty()) {
        option.check(CLI::IsMember(argument.choices));
    }
    if (argument.range.lowest != INT32_MIN || argument.range.highest != INT32_MAX) {
        option.check(CLI::Range(argument.range.lowest, argument.range.highest));
    }
    if (argument.isFolder) {
        option.check(CLI::ExistingDirectory);
    }
    if (argument.check) {
        option.check(argument.check);
    }
}

void DeclareArguments(CLI::App& app, const Verb& verb) {
    std::map<std::string, CLI::Option*> options;
    for (const auto& argument : verb.arguments) {
        options[argument.name] = Declare(app, argument);
        Restrict(*options[argument.name], argument);
    }
    for (const auto& argument : verb.arguments) {
        for (const auto& other : argument.needs) {
            options.at(argument.name)->needs(options.at(other));
        }
        for (const auto& other : argument.excludes) {
            options.at(argument.name)->excludes(options.at(other));
        }
    }
}

std::string FooterOf(const Verb& verb) {
    const std::string example = verb.example.empty() ? "" : "Example:\n  " + verb.example + "\n\n";
    const std::string codes = ExitCodesOf(verb);
    return (codes.empty() ? "" : fmt::format("Exit codes:\n{}\n", codes)) + example +
           "General options and exit codes: vemocachectl --help";
}

// `words` are those of the command line: a verb that is not among them needs no more than its place in a
// list, and the arguments of all others would cost a tenth of the page faults of a start.
void AddVerb(CLI::App& parent, const Verb& verb, const std::set<std::string_view>& words, Request& request,
             Context& context) {
    CLI::App* app = parent.add_subcommand(verb.name, verb.help);
    if (!words.contains(verb.name)) {
        return;
    }
    DeclareArguments(*app, verb);
    app->footer(FooterOf(verb));
    if (verb.action && verb.canDryRun) {
        app->add_flag("--dry-run", context.dryRun, kDryRunHelp);
    }
    if (verb.action) {
        app->callback([&request, &context, action = verb.action, changes = !verb.onlyReports,
                       failureCode = verb.failureCode] {
            request.action = action;
            context.form.isTooLate = changes;
            context.failureCode = failureCode;
        });
    }
    for (const auto& child : verb.verbs) {
        AddVerb(*app, child, words, request, context);
    }
    if (!verb.verbs.empty()) {
        app->require_subcommand(1);
    }
}

// The app of the last verb that the command line names.
const CLI::App& LastNamed(const CLI::App& app) {
    const auto chosen = app.get_subcommands();
    return chosen.empty() ? app : LastNamed(*chosen.front());
}

// The tool and the verbs that the command line names, such as "vemocachectl knob get".
std::string PathOf(const CLI::App& app) {
    const auto chosen = app.get_subcommands();
    return chosen.empty() ? app.get_name() : app.get_name() + " " + PathOf(*chosen.front());
}

// A word that stands in the place of a verb and is none; empty: there is no such word.
std::string StrangerIn(const CLI::App& app) {
    const bool isGroup = !LastNamed(app).get_subcommands([](const CLI::App*) { return true; }).empty();
    const auto words = app.remaining(true);
    const auto word = std::find_if(words.begin(), words.end(),
                                   [](const std::string& one) { return !one.starts_with('-'); });
    return isGroup && word != words.end() ? *word : "";
}

// What the stranger was probably meant to be, as the end of a sentence.
std::string KinOf(const std::string& stranger, const CLI::App& app) {
    std::vector<std::string> verbs;
    for (const CLI::App* verb : LastNamed(app).get_subcommands([](const CLI::App*) { return true; })) {
        verbs.push_back(verb->get_name());
    }
    const std::string kin = base::Nearest(stranger, verbs);
    return kin.empty() ? "" : fmt::format("; did you mean {}?", kin);
}

// What stands for a failure of the verb that the command line names, though it cannot be understood.
std::optional<int> FailureCodeOf(const CLI::App& app, const std::vector<Verb>& verbs) {
    const auto chosen = app.get_subcommands();
    const auto verb = std::find_if(verbs.begin(), verbs.end(), [&](const Verb& one) {
        return !chosen.empty() && chosen.front()->get_name() == one.name;
    });
    return verb == verbs.end() ? std::nullopt : verb->failureCode;
}

Failure WrongUsage(const CLI::App& app, const std::string& why) {
    const std::string stranger = StrangerIn(app);
    const std::string path = PathOf(app);
    const std::string group = &LastNamed(app) == &app ? "" : path.substr(path.find(' ') + 1) + " ";
    return {"wrong usage",
            stranger.empty() ? why
                             : fmt::format("there is no verb {}{}{}", group, stranger, KinOf(stranger, app)),
            path + " --help", std::nullopt, FailureKind::kUsage};
}

std::string HelpFor(const CLI::App& app, const CLI::ParseError& asked) {
    std::ostringstream text;
    app.exit(asked, text, text);
    return text.str();
}

// "help knob get" is "knob get --help".
Request ParseHelp(const CLI::App& help, char* tool, const std::vector<Verb>& verbs, Context& context) {
    std::vector<std::string> words = help.remaining();
    std::erase_if(words, [](const std::string& word) { return word.starts_with('-'); });
    words.emplace_back("--help");
    std::vector<char*> arguments = {tool};
    for (auto& word : words) {
        arguments.push_back(word.data());
    }
    return Parse(static_cast<int>(arguments.size()), arguments.data(), verbs, context);
}

void DeclareGeneralOptions(CLI::App& app, Context& context) {
    for (const auto& argument : GeneralArguments(context)) {
        Restrict(*Declare(app, argument), argument);
    }
    app.set_version_flag("--version", "vemocachectl " VEMO_VERSION);
}

}  // namespace

Request Parse(int argc, char** argv, const std::vector<Verb>& verbs, Context& context) {
    CLI::App app("Manages the SSD caches of this appliance.", "vemocachectl");
    Request request;
    app.fallthrough();
    app.require_subcommand(1);
    app.footer(fmt::format("EXIT CODES\n{}{}", kExitCodes, kFooter));
    DeclareGeneralOptions(app, context);
    const std::set<std::string_view> words(argv, argv + argc);
    for (const auto& verb : verbs) {
        AddVerb(app, verb, words, request, context);
    }
    // What follows it are no verbs to be done.
    const CLI::App* help = app.add_subcommand("help", "Tell more about a verb: help knob get")
                               ->fallthrough(false)
                               ->prefix_command();
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0 && StrangerIn(app).empty()) {
            request.text = HelpFor(app, error);
            return request;
        }
        // The flag may stand behind the argument at which parsing stopped.
        context.json = std::any_of(argv, argv + argc, [](std::string_view word) { return word == "--json"; });
        context.failureCode = FailureCodeOf(app, verbs);
        request.refusal = WrongUsage(app, error.what());
        return request;
    }
    return help->parsed() ? ParseHelp(*help, argv[0], verbs, context) : request;
}

}  // namespace cli
