// Every operation that writes, while it or a program that it runs is killed at its n-th system call, for
// every n. Afterwards the files are whole, no lock is held, nothing piles up, and a new process ends the
// work.
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <iostream>

#include "support/appliance.h"
#include "sweep/sweep.h"
#include "sweep/tracer.h"

namespace sweep {
namespace {

const char* NameOf(Victim victim) {
    return victim == Victim::kCaller ? "caller" : "child";
}

// What a call gave is told by the exit code of the process that made it.
int CallAndJudge(const Operation& operation) {
    const Result result = operation.call();
    if (std::ranges::find(operation.documented, result.value) == operation.documented.end()) {
        std::cerr << "the result " << result.value << " is none that is documented: ";
        return 1;
    }
    std::cerr << result.complaint << (result.complaint.empty() ? "" : ": ");
    return result.complaint.empty() ? 0 : 1;
}

std::string HowItEnded(const Traced& traced, Victim victim) {
    if (traced.isHung) {
        return "it hangs";
    }
    const bool isKilled = WIFSIGNALED(traced.status) && WTERMSIG(traced.status) == SIGKILL;
    if (victim == Victim::kCaller) {
        return isKilled ? "" : "it lives on";
    }
    if (WIFSIGNALED(traced.status)) {
        return "it crashes: " + std::string(strsignal(WTERMSIG(traced.status)));
    }
    return WEXITSTATUS(traced.status) == 0 ? "" : "with a killed child it gives what is not documented";
}

// A process that knows nothing of the first ends the work.
std::string Finish(const Operation& operation) {
    std::cout.flush();
    const pid_t child = fork();
    if (child == 0) {
        alarm(60);
        const std::string wrong = operation.finish              ? operation.finish()
                                  : operation.call().value == 0 ? ""
                                                                : "it fails again";
        std::cerr << wrong << (wrong.empty() ? "" : ": ");
        _exit(wrong.empty() ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    if (WIFSIGNALED(status)) {
        return "a new process, to end the work: " + std::string(strsignal(WTERMSIG(status)));
    }
    return WEXITSTATUS(status) == 0 ? "" : "a new process does not come to the end of the work";
}

std::string Look(const Operation& operation, const Traced& traced, Victim victim, const Files& files) {
    std::string wrong = HowItEnded(traced, victim);
    wrong = wrong.empty() ? HeldLock() : wrong;
    wrong = wrong.empty() ? files.Wrong(operation) : wrong;
    wrong = wrong.empty() ? Finish(operation) : wrong;
    wrong = wrong.empty() ? files.Wrong(operation) : wrong;
    if (const auto left = files.Leftovers(); wrong.empty() && !left.empty()) {
        wrong = *left.begin() + " is left when the work is done";
    }
    return wrong;
}

void Prepare(const Operation& operation, const Files& files) {
    files.Restore();
    if (operation.prepare) {
        operation.prepare();
    }
}

// Whether the operation came to the system call at all.
bool KillOnce(const Operation& operation, const Harm& kill, const Files& files, Tally& tally) {
    Prepare(operation, files);
    const Traced traced = RunTraced([&] { return CallAndJudge(operation); }, kill);
    if (!traced.isMet) {
        return false;
    }
    ++tally.points[operation.name];
    const std::string wrong = Look(operation, traced, kill.victim, files);
    if (!wrong.empty()) {
        ++tally.findings;
        std::cout << "finding: ./dev sweep kills --operation " << operation.name << " --kind "
                  << NameOf(kill.victim) << " --n " << kill.call << ": " << wrong << std::endl;
    }
    return true;
}

}  // namespace

Tally SweepKills(const Options& options, const Files& files) {
    Tally tally;
    Places places(options);
    for (const Operation& operation : Operations()) {
        for (const Victim victim : {Victim::kCaller, Victim::kChild}) {
            if (operation.writes && IsWanted(options.operation, operation.name) &&
                IsWanted(options.kind, NameOf(victim))) {
                places.ForEach(
                    [&](int n) { return KillOnce(operation, {.victim = victim, .call = n}, files, tally); });
            }
        }
    }
    return tally;
}

}  // namespace sweep
