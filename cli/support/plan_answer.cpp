#include "support/plan_answer.h"

#include <fmt/format.h>

#include "output/wrap.h"
#include "support/dry_run.h"
#include "support/quoted.h"

namespace cli {
namespace {

std::string Line(const std::vector<std::string>& words) {
    std::string line;
    for (const auto& word : words) {
        line += (line.empty() ? "" : " ") + Quoted(word);
    }
    return Printable(line);
}

std::string ProseOf(std::size_t number, const Step& step) {
    std::string text = fmt::format("{:>3}. {}{}{}\n", number, step.call, step.arguments.empty() ? "" : " ",
                                   Line(step.arguments));
    for (const auto& program : step.programs) {
        text += fmt::format("       $ {}\n", Line(program));
    }
    return text;
}

Record DescribeStep(std::size_t number, const Step& step) {
    return {{{"step", "Step", std::uint64_t{number}},
             {"call", "Call", step.call},
             {"arguments", "Arguments", step.arguments},
             {"programs", "Programs", step.programs}},
            ProseOf(number, step)};
}

// What would be lost, and what would come of it.
Record Outlook(const Plan& plan, const Form& form) {
    Record record{{{"losses", "Losses", plan.losses}, {"problems", "Problems", plan.problems}}};
    std::string text;
    for (const auto& loss : plan.losses) {
        text += Wrapped(fmt::format("It would {}.", loss), "  ");
    }
    for (const auto& problem : plan.problems) {
        text += Wrapped(fmt::format("It would fail in part: {}", problem), "  ");
    }
    for (const auto& field : plan.outlook) {
        record.fields.push_back(field);
        text += fmt::format("  {:<28}  {}\n", field.label, ToText(field, form.bytes));
    }
    record.prose = plan.losses.empty() ? "  Nothing would be lost.\n" + text : text;
    return record;
}

}  // namespace

Answer PlanAnswer(const Form& form) {
    const Plan& plan = NotedPlan();
    Answer answer{"plan",
                  Layout::kRecords,
                  {},
                  "Nothing was changed. These steps would be done:",
                  "Nothing would be changed."};
    if (plan.steps.empty()) {
        answer.headline.clear();
    }
    for (const auto& step : plan.steps) {
        answer.records.push_back(DescribeStep(answer.records.size() + 1, step));
    }
    answer.total = Outlook(plan, form);
    answer.tellsHarm = !plan.losses.empty() || !plan.problems.empty();
    return answer;
}

}  // namespace cli
