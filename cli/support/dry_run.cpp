#include "support/dry_run.h"

#include <utility>

namespace cli {
namespace {

bool isDryRun = false;
Plan noted;

}  // namespace

void BeginDryRun() {
    isDryRun = true;
}

bool IsDryRun() {
    return isDryRun;
}

const Plan& NotedPlan() {
    return noted;
}

void NoteStep(Step step) {
    noted.steps.push_back(std::move(step));
}

void NoteLoss(const std::string& what) {
    noted.losses.push_back(what);
}

void NoteProblem(const std::string& problem) {
    noted.problems.push_back(problem);
}

void NoteOutlook(Field field) {
    noted.outlook.push_back(std::move(field));
}

Outcome Change(Runner run, const std::function<Step()>& step, const std::function<int()>& call, int well) {
    if (IsDryRun()) {
        NoteStep(step());
        return {well, {}, {}, false};
    }
    return run(call);
}

}  // namespace cli
