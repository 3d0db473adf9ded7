#include "support/dry_run.h"

#include <optional>
#include <utility>

namespace cli {
namespace {

std::optional<Plan> noted;  // in a dry run alone

}  // namespace

void BeginDryRun() {
    noted.emplace();
}

bool IsDryRun() {
    return noted.has_value();
}

const Plan& NotedPlan() {
    return *noted;
}

void NoteStep(Step step) {
    noted->steps.push_back(std::move(step));
}

void NoteLoss(const std::string& what) {
    noted->losses.push_back(what);
}

void NoteOutlook(Field field) {
    noted->outlook.push_back(std::move(field));
}

Outcome Change(Runner run, const std::function<Step()>& step, const std::function<int()>& call, int well) {
    if (IsDryRun()) {
        NoteStep(step());
        return {well, {}, {}, false};
    }
    return run(call);
}

}  // namespace cli
