#include "parser/parser.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <map>

// The one file that knows the parser library: it costs more to compile than all verbs together.
namespace cli {
namespace {

constexpr const char* kFooter =
    "Exit codes: 0 done, 1 failed, 2 wrong usage.\n"
    "Answers go to standard output, remarks, questions and errors to standard error;\n"
    "with --json everything is one JSON object on standard output, errors too.\n"
    "\"vemocachectl VERB --help\" tells more about a verb.";

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

void AddVerb(CLI::App& parent, const Verb& verb, Request& request) {
    CLI::App* app = parent.add_subcommand(verb.name, verb.help);
    DeclareArguments(*app, verb);
    if (!verb.example.empty()) {
        app->footer("Example:\n  " + verb.example);
    }
    if (verb.action) {
        app->callback([&request, action = verb.action] { request.action = action; });
    }
    for (const auto& child : verb.verbs) {
        AddVerb(*app, child, request);
    }
    if (!verb.verbs.empty()) {
        app->require_subcommand(1);
    }
}

Failure WrongUsage(const CLI::App& app, const CLI::ParseError& error) {
    const auto strangers = app.remaining();
    const std::string why = app.get_subcommands().empty() && !strangers.empty()
                                ? fmt::format("there is no verb {}", strangers.front())
                                : error.what();
    return {"wrong usage", why, "vemocachectl --help, or vemocachectl VERB --help", std::nullopt,
            FailureKind::kUsage};
}

std::string HelpFor(const CLI::App& app, const CLI::ParseError& asked) {
    std::ostringstream text;
    app.exit(asked, text, text);
    return text.str();
}

}  // namespace

Request Parse(int argc, char** argv, const std::vector<Verb>& verbs, Context& context) {
    CLI::App app("Manages the SSD caches of this appliance.", "vemocachectl");
    Request request;
    app.fallthrough();
    app.require_subcommand(1);
    app.footer(kFooter);
    app.add_flag("--json", context.json, "answer with JSON");
    app.add_flag("-v,--verbose", context.verbose, "show the library's log on standard error");
    app.set_version_flag("--version", "vemocachectl " VEMO_VERSION);
    for (const auto& verb : verbs) {
        AddVerb(app, verb, request);
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) {
            request.text = HelpFor(app, error);
            return request;
        }
        // The flag may stand behind the argument at which parsing stopped.
        context.json = std::any_of(argv, argv + argc, [](std::string_view word) { return word == "--json"; });
        request.refusal = WrongUsage(app, error);
    }
    return request;
}

}  // namespace cli
