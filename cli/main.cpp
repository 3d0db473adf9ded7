// vemocachectl: SSD caches from the command line. The verbs lie in verbs/, one a file.
#include <fmt/format.h>
#include <syslog.h>
#include <unistd.h>

#include <exception>

#include "output/answer.h"
#include "parser/parser.h"
#include "verbs/verbs.h"

namespace {

constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;

int Refuse(const cli::Failure& failure, bool json) {
    cli::Print(failure, json);
    return failure.kind == cli::FailureKind::kUsage ? kExitUsage : kExitFailed;
}

int Run(const cli::Request& request, cli::Context& context) {
    try {
        if (geteuid() != 0) {
            throw cli::Failure{"vemocachectl must be run by root", "devices and knobs are root's", ""};
        }
        request.action(context);
        return context.failed ? kExitFailed : 0;
    } catch (const cli::Failure& failure) {
        return Refuse(failure, context.json);
    } catch (const std::exception& error) {
        return Refuse(cli::Failure{"unexpected error", error.what(), ""}, context.json);
    }
}

}  // namespace

int main(int argc, char** argv) {
    cli::Context context;
    const cli::Request request = cli::Parse(argc, argv, cli::AllVerbs(), context);
    if (request.refusal) {
        return Refuse(*request.refusal, context.json);
    }
    if (!request.action) {
        fmt::print("{}", request.text);
        return 0;
    }
    openlog("vemocachectl", LOG_PID | (context.verbose ? LOG_PERROR : 0), LOG_USER);
    return Run(request, context);
}
