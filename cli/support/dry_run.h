// A dry run: what would change something is noted down in the place of being done.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "output/record.h"
#include "support/failure.h"

namespace cli {

// An argument vector, the program itself first.
using Program = std::vector<std::string>;

// One step of a change.
struct Step {
    std::string call;                    // the library's function; "write", "remove": of a file of the tool
    std::vector<std::string> arguments;  // what it works on
    std::vector<Program> programs;       // that change something, in the order in which the call runs them
};

// What a dry run has come upon.
struct Plan {
    std::vector<Step> steps;
    std::vector<std::string> losses;    // each completes "This would ..."
    std::vector<std::string> problems;  // parts of the work that would fail
    std::vector<Field> outlook;         // what will come of it: sizes, times, ...
};

// From now on nothing is changed. Once, before the verb's action.
void BeginDryRun();
bool IsDryRun();

// All that was noted so far.
const Plan& NotedPlan();
void NoteStep(Step step);
void NoteLoss(const std::string& what);
void NoteProblem(const std::string& problem);
void NoteOutlook(Field field);

// How a library call is run: Attempt or Uninterrupted.
using Runner = Outcome (*)(const std::function<int()>& call);

// Makes a library call that changes something. In a dry run its step is noted instead, and the call counts as
// one that went well, with the result `well`.
Outcome Change(Runner run, const std::function<Step()>& step, const std::function<int()>& call, int well = 0);

}  // namespace cli
