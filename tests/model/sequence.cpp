#include "model/sequence.h"

#include <unistd.h>

#include <algorithm>
#include <random>

#include "base/pipe.h"
#include "model/operations.h"
#include "support/appliance.h"

namespace model {

namespace {

// What can fail beneath an operation: a call of the platform or of the system, an allocation, a program.
constexpr const char* kAllocation = "an allocation";
constexpr const char* kProgram = "a program";
constexpr const char* kFaults[] = {"",
                                   kAllocation,
                                   kProgram,
                                   "VLIBCSzHashAlloc",
                                   "VLIBCSzListAlloc",
                                   "VLIBCSzHashSetValue",
                                   "VLIBCFileEnumSection",
                                   "VLIBCFileGetSection",
                                   "VLIBCFileSetSection",
                                   "VLIBCFileAddSection",
                                   "VLIBCFileRemoveSection",
                                   "VLIBCFileSetKeyValue",
                                   "VLIBCFileRemoveKey",
                                   "VLIBCFileTouch",
                                   "VLIBCFileLockTimeByFile",
                                   "open",
                                   "flock",
                                   "write",
                                   "fsync",
                                   "renameat",
                                   "linkat",
                                   "chmod"};

// Sets a step's fault for a scope.
class Armed {
  public:
    explicit Armed(const Step& step) : name_(kFaults[step.fault]) {
        if (name_ == std::string_view(kAllocation)) {
            pendingPlan = {step.call, step.stays};
        } else if (name_ == std::string_view(kProgram)) {
            spy::state().answer = [this, left = step.call, stays = step.stays](
                                      const spy::ToolRun&) mutable -> std::optional<spy::Answer> {
                const int now = left--;
                if (now == 1 || (stays && now < 1)) {
                    ++failed_;
                    return spy::Answer{1, "", false};
                }
                return std::nullopt;
            };
        } else if (step.fault != 0) {
            spy::state().faults[name_] = {step.call, step.stays, 0};
        }
    }
    Armed(const Armed&) = delete;
    Armed& operator=(const Armed&) = delete;
    ~Armed() {
        pendingPlan = {};
        spy::state() = {};
        spy::state().answer = usual_;
    }

    // Whether something failed.
    [[nodiscard]] bool Fired() const {
        const auto& faults = spy::state().faults;
        const auto found = faults.find(name_);
        return failed_ > 0 || pendingPlan.failed > 0 || (found != faults.end() && found->second.fired > 0);
    }

  private:
    const char* name_;
    std::function<std::optional<spy::Answer>(const spy::ToolRun&)> usual_ = spy::state().answer;
    int failed_ = 0;
};

// What was given up on request is what is found there.
void AdoptGivenUp(State& expected, const State& found) {
    for (std::size_t i = 0; i < kPairs.size(); ++i) {
        std::string& content = expected.pairs.at(i).content;
        for (std::size_t block = 0; block < content.size(); ++block) {
            const std::string& there = found.pairs.at(i).content;
            if (content[block] == '*' && there.size() == content.size()) {
                content[block] = there[block];
            }
        }
    }
}

void LoosenEntries(std::optional<Entries>& entries) {
    for (std::size_t i = 0; entries && i < entries->size(); ++i) {
        (*entries)[i].flush.clear();
    }
}

// After a failed operation each part of the state is as it was or as it was to become, but for what the
// operation may leave in between. Brings `expected`, what was to become, to what was found.
std::string DifferenceOfFailed(const Operation& operation, State before, State after, State found) {
    if ((operation.loose & kFlushState) != 0) {
        for (State* state : {&before, &after, &found}) {
            LoosenEntries(state->file);
            LoosenEntries(state->copy);
        }
    }
    State mixed = after;
    const auto choose = [&](auto member) {
        if (found.*member == before.*member) {
            mixed.*member = before.*member;
        }
    };
    choose(&State::file);
    choose(&State::copy);
    choose(&State::serials);
    choose(&State::apmFolder);
    choose(&State::apmKept);
    choose(&State::apmNow);
    for (std::size_t i = 0; i < kPairs.size(); ++i) {
        const Pair& seen = found.pairs.at(i);
        const Pair& was = before.pairs.at(i);
        Pair& pair = mixed.pairs.at(i);
        pair.device = seen.device == was.device ? was.device : pair.device;
        pair.version = seen.version == was.version ? was.version : pair.version;
        pair.forced = seen.forced == was.forced ? was.forced : pair.forced;
        pair.content = seen.content == was.content ? was.content : pair.content;
        pair.knobs = seen.knobs == was.knobs || pair.device.empty() ? was.knobs : pair.knobs;
        if ((operation.loose & kKnobs) != 0 || seen.device.empty()) {
            pair.knobs = seen.knobs;
        }
    }
    AdoptGivenUp(mixed, found);
    return Difference(mixed, found);
}

std::string Told(const char* what, const std::string& expected, const std::string& found) {
    return std::string(what) + ": expected \"" + expected + "\", got \"" + found + "\"";
}

// Runs one step; brings `state` to what should be now. Returns why it failed, or nothing.
std::string RunStep(State& state, const Step& step, bool last) {
    const Operation& operation = AllOperations()[step.operation];
    State after = state;
    const std::string expected = operation.expect(after, Choice(step.choice));
    std::string answer;
    bool fired = false;
    {
        const Armed armed(step);
        answer = operation.act(state, Choice(step.choice));
        fired = armed.Fired();
    }
    State found = Observe(after, last || fired || step.choice % 4 == 0);
    if (!fired) {
        AdoptGivenUp(after, found);
        state = after;
        return answer == expected ? Difference(state, found) : Told("the answer", expected, answer);
    }
    // The device that a cache would have had is another's name where it did not come up.
    found = Observe(state, true);
    if (answer != expected && answer != operation.failure && (operation.loose & kAnswer) == 0) {
        return Told("the answer to a failure", operation.failure, answer);
    }
    std::string difference;
    if (answer == expected && answer != operation.failure) {
        AdoptGivenUp(after, found);
        difference = Difference(after, found);
    } else {
        difference = DifferenceOfFailed(operation, state, after, found);
    }
    for (std::size_t i = 0; i < kPairs.size(); ++i) {
        Pair& pair = found.pairs.at(i);
        const Pair& was = state.pairs.at(i);
        pair.mode = pair.version == -1                                   ? -1
                    : pair.version == was.version && !was.device.empty() ? was.mode
                                                                         : after.pairs.at(i).mode;
        pair.unsure.insert(was.unsure.begin(), was.unsure.end());
    }
    state = found;
    return difference;
}

void RunAll(const Sequence& sequence, int report) {
    State state = Reset();
    for (std::size_t i = 0; i < sequence.size(); ++i) {
        std::string failure = RunStep(state, sequence[i], i + 1 == sequence.size());
        std::replace(failure.begin(), failure.end(), '\n', ' ');
        const std::string line = std::to_string(i) + " " + failure + "\n";
        if (write(report, line.data(), line.size()) < 0 || !failure.empty()) {
            return;
        }
    }
}

std::string ReadAll(int fd) {
    std::string text;
    char buffer[4096];
    for (ssize_t got = 0; (got = read(fd, buffer, sizeof buffer)) > 0;) {
        text.append(buffer, static_cast<std::size_t>(got));
    }
    return text;
}

// The step that the last line is about, and what it says of it; nothing where all went well.
std::optional<Failure> Judge(const std::string& report, int ended, std::size_t steps) {
    const std::size_t begin = report.size() < 2 ? 0 : report.rfind('\n', report.size() - 2) + 1;
    const std::size_t last = report.empty() ? 0 : std::stoul(report.substr(begin));
    const std::string text = report.substr(std::min(report.find(' ', begin), report.size()));
    if (text.size() > 2) {
        return Failure{last, text};
    }
    if (ended != 0) {
        return Failure{report.empty() ? 0 : last + 1, "the process ended with " + std::to_string(ended)};
    }
    return steps == 0 || last + 1 == steps ? std::nullopt : std::optional<Failure>({last, "it ended early"});
}

}  // namespace

Sequence MakeUp(uint32_t seed, std::size_t steps, bool withFaults) {
    const auto& operations = AllOperations();
    std::vector<std::size_t> tickets;
    for (std::size_t i = 0; i < operations.size(); ++i) {
        tickets.insert(tickets.end(), operations[i].weight, i);
    }
    std::mt19937 random(seed);
    Sequence sequence;
    while (sequence.size() < steps) {
        Step step{tickets[random() % tickets.size()], static_cast<uint32_t>(random() % 1000000)};
        if (withFaults && random() % 2 == 0) {
            step.fault = 1 + random() % (std::size(kFaults) - 1);
            step.call = 1 + static_cast<int>(random() % (step.fault == 1 ? 40 : 4));
            step.stays = random() % 3 == 0;
            // A lock that cannot be released stays held, as it is documented, and every later call fails.
            if (kFaults[step.fault] == std::string_view("flock")) {
                step.call = 1;
                step.stays = false;
            }
        }
        sequence.push_back(step);
    }
    return sequence;
}

std::string ToText(const Step& step) {
    std::string text = std::string(AllOperations()[step.operation].name) + " " + std::to_string(step.choice);
    if (step.fault != 0) {
        text += std::string(", while ") + kFaults[step.fault] + " fails at call " +
                std::to_string(step.call) + (step.stays ? " and from then on" : "");
    }
    return text;
}

std::optional<Failure> RunSequence(const Sequence& sequence, const std::function<void()>& prepare) {
    base::Pipe pipe = base::MakePipe();
    const pid_t child = appliance::Fork([&] {
        if (prepare) {
            prepare();
        }
        RunAll(sequence, pipe.write.Get());
        return 0;
    });
    pipe.write.Reset();
    const std::string report = ReadAll(pipe.read.Get());
    return Judge(report, appliance::Wait(child), sequence.size());
}

Sequence Shrink(Sequence sequence, const std::function<bool(const Sequence&)>& fails) {
    for (std::size_t size = std::max<std::size_t>(sequence.size() / 2, 1); size > 0; size /= 2) {
        for (std::size_t begin = 0; begin < sequence.size();) {
            Sequence fewer = sequence;
            const std::size_t end = std::min(begin + size, sequence.size());
            fewer.erase(fewer.begin() + static_cast<std::ptrdiff_t>(begin),
                        fewer.begin() + static_cast<std::ptrdiff_t>(end));
            fails(fewer) ? sequence = fewer : (begin = end, sequence);
        }
    }
    for (Step& step : sequence) {
        const Step was = std::exchange(step, {step.operation, step.choice});
        step = was.fault != 0 && !fails(sequence) ? was : step;
    }
    return sequence;
}

}  // namespace model
