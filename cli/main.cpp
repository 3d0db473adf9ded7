// vemocachectl: SSD caches from the command line. The verbs lie in verbs/, one a file.
#include <fcntl.h>
#include <sys/auxv.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <string>
#include <string_view>
#include <vector>

#include "completion/complete.h"
#include "output/answer.h"
#include "output/terminal.h"
#include "parser/parser.h"
#include "support/dry_run.h"
#include "support/library_log.h"
#include "support/plan_answer.h"
#include "verbs/verbs.h"

namespace {

constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;
constexpr int kExitNo = 3;

int Refuse(const cli::Failure& failure, const cli::Context& context) {
    cli::Print(failure, context.json);
    return context.failureCode.value_or(failure.kind == cli::FailureKind::kUsage ? kExitUsage : kExitFailed);
}

// With the rights of another, everything that its caller chose would be trusted: the environment, the
// descriptors, the folder it stands in.
void RefuseLentRights() {
    if (getauxval(AT_SECURE) != 0) {
        throw cli::Failure{"vemocachectl does not run with lent rights",
                           "it was installed set-uid, set-gid or with capabilities", "sudo vemocachectl"};
    }
}

// Whatever runs the appliance's programs for us: which code they load and how their shell splits words is not
// for our caller to say.
void CleanEnvironment() {
    for (const char* name :
         {"LD_PRELOAD", "LD_LIBRARY_PATH", "LD_AUDIT", "IFS", "ENV", "BASH_ENV", "CDPATH"}) {
        unsetenv(name);
    }
    setenv("PATH", "/usr/sbin:/usr/bin:/sbin:/bin", 1);
}

void Act(const cli::Request& request, cli::Context& context) {
    if (!context.dryRun) {
        request.action(context);
        return;
    }
    cli::BeginDryRun();
    cli::HoldAnswers(true);
    request.action(context);
    cli::HoldAnswers(false);
    context.form.isTooLate = false;
    cli::SetForm(context.form);
    cli::Print(cli::PlanAnswer(context.form), context.json);
}

int Run(const cli::Request& request, cli::Context& context) {
    try {
        RefuseLentRights();
        CleanEnvironment();
        if (geteuid() != 0) {
            throw cli::Failure{"vemocachectl must be run by root", "devices and knobs are root's", ""};
        }
        Act(request, context);
        return context.exitCode.value_or(context.failed ? kExitFailed : context.saidNo ? kExitNo : 0);
    } catch (const cli::Failure& failure) {
        return Refuse(failure, context);
    } catch (const std::exception& error) {
        return Refuse(cli::Failure{"unexpected error", error.what(), ""}, context);
    }
}

// For the shells' scripts, with the tool's own care for whom it runs.
int Complete(int argc, char** argv) {
    try {
        RefuseLentRights();
    } catch (const cli::Failure& failure) {
        return Refuse(failure, {});
    }
    CleanEnvironment();
    const std::vector<std::string> words(argv + 2, argv + argc);
    cli::PrintText(cli::TextOf(cli::OffersFor(words, cli::AllVerbs(), cli::NamesHere)));
    return 0;
}

// A file opened later must not become a standard one: output would land in a lock file or on a device.
void OccupyStandardDescriptors() {
    for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(fd, F_GETFD) != -1) {
            continue;
        }
        // The lowest free descriptor is this one.
        if (open("/dev/null", O_RDWR) != fd) {  // NOLINT(cppcoreguidelines-pro-type-vararg)
            _exit(kExitFailed);
        }
        if (fd == STDOUT_FILENO) {
            cli::LoseOutput(EBADF);
        }
    }
}

// The exit code, where an answer that nobody got is a failure.
int End(int code, const cli::Context& context) {
    const auto lost = cli::LostOutput();
    if (!lost) {
        return code;
    }
    cli::Print(*lost, false);
    return context.failureCode.value_or(kExitFailed);
}

}  // namespace

int main(int argc, char** argv) {
    OccupyStandardDescriptors();
    // A reader that has gone must not end a verb half-way; writing to it fails instead.
    std::signal(SIGPIPE, SIG_IGN);
    cli::Context context;
    if (argc > 1 && std::string_view(argv[1]) == "--complete") {
        cli::OpenSystemLog(false);
        return End(Complete(argc, argv), context);
    }
    const cli::Request request = cli::Parse(argc, argv, cli::AllVerbs(), context);
    context.form.columns = cli::TerminalWidth(STDOUT_FILENO);
    cli::SetForm(context.form);
    if (request.refusal) {
        return End(Refuse(*request.refusal, context), context);
    }
    if (!request.action) {
        cli::PrintText(request.text);
        return End(0, context);
    }
    cli::OpenSystemLog(context.verbose);
    return End(Run(request, context), context);
}
