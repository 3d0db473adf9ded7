#include "simulation/kernel/fault_kinds.h"

#include <algorithm>
#include <string_view>
#include <vector>

#include "base/nearest.h"
#include "simulation/common/programs.h"
#include "simulation/kernel/knobs.h"

namespace simulation {

namespace {

using Names = std::vector<std::string>;

// A fault, or a family of faults whose name goes on behind a point.
struct FaultKind {
    std::string name;
    Names members;            // of a family; a tool's may go on with its first argument
    Names actions;            // empty: the value is no action
    Names numbered;           // actions that take a number behind a colon
    std::string_view values;  // for people
};

Names KnobNames() {
    Names names = {"*"};
    for (const auto& knob : kKnobs) {
        names.emplace_back(knob.name);
    }
    return names;
}

Names ProgramNames() {
    Names names;
    const auto add = [&](std::string_view path) { names.emplace_back(path.substr(path.rfind('/') + 1)); };
    std::for_each(kAppliancePrograms.begin(), kAppliancePrograms.end(), add);
    std::for_each(kMachinePrograms.begin(), kMachinePrograms.end(), add);
    return names;
}

const std::vector<FaultKind>& Kinds() {
    static const std::vector<FaultKind> kinds = {
        {"writeback", {}, {"fail"}, {}, "ACTION fail: writing a dirty block back to the volume fails"},
        {"errors", {}, {}, {}, "N: the kernel reports N failed write-backs"},
        {"cleaning", {}, {}, {}, "pause, run, or N: pauses, after cleaning N blocks that are done on return"},
        {"power", {}, {"cut"}, {}, "cut, or cut@N after N more writes and flushes: everything ends at once"},
        {"remove", {}, {"busy"}, {}, "ACTION busy: a cache device is busy when it is to be removed"},
        {"knob",
         KnobNames(),
         {"reject"},
         {},
         "ACTION reject: a knob's file takes no value; knob.* for any knob"},
        {"tool",
         ProgramNames(),
         {"fail", "hang", "rubbish", "flood", "crash"},
         {"fail", "flood"},
         "ACTION of a tool: fail[:STATUS], hang, rubbish, flood[:LINES], crash; tool.NAME.WORD, such as "
         "tool.dmsetup.remove: of its runs with this first argument alone"},
        {"file",
         {"flashcache_attribute", "flashcache_errors", "flashcache_progress", "flashcache_stats"},
         {},
         {},
         "TEXT that a file under /proc/flashcache holds instead"},
    };
    return kinds;
}

std::string Joined(const Names& names) {
    std::string text;
    for (const auto& name : names) {
        text += (text.empty() ? "" : ", ") + name;
    }
    return text;
}

std::string WithKin(const std::string& word, const Names& known) {
    const std::string kin = base::Nearest(word, known);
    return kin.empty() ? "" : "; did you mean " + kin + "?";
}

const FaultKind* FindKind(const std::string& name) {
    const auto& kinds = Kinds();
    const std::string head = name.substr(0, name.find('.'));
    const auto found = std::find_if(kinds.begin(), kinds.end(), [&](const FaultKind& kind) {
        return head == kind.name && (name.size() > head.size()) == !kind.members.empty();
    });
    return found == kinds.end() ? nullptr : &*found;
}

std::string WrongName(const std::string& name) {
    Names known;
    for (const auto& kind : Kinds()) {
        if (kind.members.empty()) {
            known.push_back(kind.name);
        }
        for (const auto& member : kind.members) {
            known.push_back(kind.name + "." + member);
        }
    }
    // A tool's name may go on with the first argument of the runs that are meant.
    const auto point = name.starts_with("tool.") ? name.find('.', 5) : std::string::npos;
    const bool isKnown = std::find(known.begin(), known.end(), name.substr(0, point)) != known.end();
    return isKnown ? "" : "there is no fault " + name + WithKin(name, known) + " (fault --list)";
}

std::string WrongAction(const FaultKind& kind, const std::string& value) {
    const std::string action = value.substr(0, value.find_first_of(":@x"));
    const bool isKnown =
        action == "ok" || std::find(kind.actions.begin(), kind.actions.end(), action) != kind.actions.end();
    if (!isKnown) {
        return kind.name + " takes no action " + action + "; its actions are " + Joined(kind.actions) +
               ", and ok, which ends them";
    }
    const std::string rest = value.substr(action.size());
    const bool takesNumber =
        std::find(kind.numbered.begin(), kind.numbered.end(), action) != kind.numbered.end();
    const auto digits = std::min(rest.find_first_not_of("0123456789", 1), rest.size());
    return rest.starts_with(":") && (!takesNumber || digits == 1) ? "no number belongs there: " + value : "";
}

}  // namespace

std::string WrongFault(const std::string& name, const std::string& value) {
    std::string wrong = WrongName(name);
    const FaultKind* const kind = FindKind(name);
    if (!wrong.empty() || kind == nullptr) {
        return wrong;
    }
    return kind->actions.empty() ? "" : WrongAction(*kind, value);
}

std::string FaultKindsText() {
    std::string text;
    for (const auto& kind : Kinds()) {
        text +=
            kind.name + (kind.members.empty() ? "" : ".NAME") + "\n    " + std::string(kind.values) + "\n";
        if (!kind.members.empty()) {
            text += "    NAME: " + Joined(kind.members) + "\n";
        }
    }
    return text;
}

}  // namespace simulation
