// Sees and steers what the library asks of the platform: the test program defines the platform's symbols and
// so comes before the real libraries, to which it passes on whatever a test has not claimed.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace spy {

// One program run, as an argument vector without the program itself. `mode` is VLIBCPopen's, "" for
// VLIBCExecl.
struct ToolRun {
    std::string program;
    std::string mode;
    std::vector<std::string> arguments;

    bool operator==(const ToolRun&) const = default;
};

// What a run gives instead of the real program's result.
struct Answer {
    int status = 0;
    std::string output;
    bool starts = true;
};

struct LogLine {
    int priority;
    std::string file;  // of the reporting module
    std::string text;  // without "<file>:<line> "
};

// What the tests of one case ask for and see. Reset by the fixture.
struct State {
    std::vector<ToolRun> runs;
    std::vector<LogLine> log;
    std::vector<std::string> slept;  // names of the sleep calls that returned at once, in order

    // Decides each run: an answer in its place, or nothing to run the real program.
    std::function<std::optional<Answer>(const ToolRun&)> answer;

    // By the function's name: the call that fails (1 the next one), and from then on all if `stays`.
    struct Fault {
        int call = 1;
        bool stays = false;
        int error = 0;       // for the error slot (0 leaves it), or errno of a system call (0 is EIO)
        bool kills = false;  // ends the process instead, as SIGKILL does
        int fired = 0;       // how many calls have failed
    };
    std::map<std::string, Fault, std::less<>> faults;

    // Whether sleeps return at once, but for the calls named in `realSleeps`; what runs in the pause of a
    // waiting loop goes into `onSleep`.
    bool skipSleeps = true;
    std::set<std::string> realSleeps;
    std::function<void()> onSleep;
};

State& state();

// The texts logged at error level (and others with `all`), in order.
std::vector<std::string> LoggedTexts(bool all = false);

}  // namespace spy
