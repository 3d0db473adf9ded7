// vemocachectl: SSD caches from the command line. The verbs lie in verbs/, one a file.
#include <fmt/format.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <exception>
#include <string_view>

#include "output/answer.h"
#include "verbs/verb.h"

namespace {

constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;

constexpr const char* kFooter =
    "Exit codes: 0 done, 1 failed, 2 wrong usage.\n"
    "Answers go to standard output, remarks, questions and errors to standard error;\n"
    "with --json everything is one JSON object on standard output, errors too.\n"
    "\"vemocachectl VERB --help\" tells more about a verb.";

void BuildParser(CLI::App& app, cli::Context& context) {
    app.name("vemocachectl");
    app.fallthrough();
    app.require_subcommand(1);
    app.footer(kFooter);
    app.add_flag("--json", context.json, "answer with JSON");
    app.add_flag("-v,--verbose", context.verbose, "show the library's log on standard error");
    for (const auto add : {cli::AddCreate,    cli::AddList,   cli::AddStatus,  cli::AddLoad, cli::AddUnload,
                           cli::AddFlush,     cli::AddDelete, cli::AddExpand,  cli::AddKnob, cli::AddState,
                           cli::AddAttribute, cli::AddConfig, cli::AddModules, cli::AddWipe, cli::AddSize,
                           cli::AddMemory,    cli::AddProbe,  cli::AddSsd,     cli::AddPin,  cli::AddFilestat,
                           cli::AddSerials,   cli::AddNotify, cli::AddApm}) {
        add(app, context);
    }
}

int RefuseUsage(const CLI::App& app, const CLI::ParseError& error, bool json) {
    if (error.get_exit_code() == 0) {
        return app.exit(error);  // --help
    }
    const auto strangers = app.remaining();
    const std::string why = app.get_subcommands().empty() && !strangers.empty()
                                ? fmt::format("there is no verb {}", strangers.front())
                                : error.what();
    cli::Print(cli::Failure{"wrong usage", why, "vemocachectl --help, or vemocachectl VERB --help"}, json);
    return kExitUsage;
}

int Run(cli::Context& context) {
    try {
        if (geteuid() != 0) {
            throw cli::Failure{"vemocachectl must be run by root", "devices and knobs are root's", ""};
        }
        context.action();
        return context.failed ? kExitFailed : 0;
    } catch (const cli::Failure& failure) {
        cli::Print(failure, context.json);
    } catch (const std::exception& error) {
        cli::Print(cli::Failure{"unexpected error", error.what(), ""}, context.json);
    }
    return kExitFailed;
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app("Manages the SSD caches of this appliance.");
    cli::Context context;
    BuildParser(app, context);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        // The flag may stand behind the argument at which parsing stopped.
        const bool json =
            std::any_of(argv, argv + argc, [](std::string_view word) { return word == "--json"; });
        return RefuseUsage(app, error, json);
    }
    openlog("vemocachectl", LOG_PID | (context.verbose ? LOG_PERROR : 0), LOG_USER);
    return Run(context);
}
