#include "simulation/kernel/fault_kinds.h"

#include <algorithm>
#include <string_view>
#include <vector>

#include "base/nearest.h"
#include "simulation/common/count.h"
#include "simulation/common/programs.h"
#include "simulation/kernel/model.h"

namespace simulation {

namespace {

using Names = std::vector<std::string>;

// What follows an action behind a colon.
enum class Argument : uint8_t { kNone, kMayCount, kMayRange, kMilliseconds };

struct Action {
    std::string name;
    Argument argument = Argument::kNone;
};

// A fault, or a family of faults whose name goes on behind a point.
struct FaultKind {
    std::string name;
    Names members;                // of a family; a tool's may go on with its first argument
    std::vector<Action> actions;  // empty: the value is no action
    std::string_view values;      // for people
    bool isOfDisks = false;       // its members are the disks that there are
};

constexpr uint64_t kMostMilliseconds = 60'000;

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
        {"writeback", {}, {{"fail"}}, "ACTION fail: writing a dirty block back to the volume fails"},
        {"errors", {}, {}, "N: the kernel reports N failed write-backs"},
        {"cleaning", {}, {}, "pause, run, or N: pauses, after cleaning N blocks that are done on return"},
        {"power", {}, {{"cut"}}, "cut, or cut@N after N more writes and flushes: everything ends at once"},
        {"remove", {}, {{"busy"}}, "ACTION busy: a cache device is busy when it is to be removed"},
        {"read",
         {},
         {{"fail", Argument::kMayRange}},
         "ACTION fail[:OFFSET+LENGTH]: what the caches read of a disk, or of so many bytes of it, fails",
         true},
        {"write",
         {},
         {{"fail", Argument::kMayRange}},
         "ACTION fail[:OFFSET+LENGTH]: what they write there or discard fails; without a range flushes too",
         true},
        {"latency",
         {},
         {{"wait", Argument::kMilliseconds}},
         "ACTION wait:MILLISECONDS: each request to a disk takes so much longer",
         true},
        {"knob",
         KnobNames(),
         {{"reject"}},
         "ACTION reject: a knob's file takes no value; knob.* for any knob"},
        {"tool",
         ProgramNames(),
         {{"fail", Argument::kMayCount}, {"hang"}, {"rubbish"}, {"flood", Argument::kMayCount}, {"crash"}},
         "ACTION of a tool: fail[:STATUS], hang, rubbish, flood[:LINES], crash; tool.NAME.WORD, such as "
         "tool.dmsetup.remove: of its runs with this first argument alone"},
        {"file",
         {"flashcache_attribute", "flashcache_errors", "flashcache_progress", "flashcache_stats"},
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

bool IsFamily(const FaultKind& kind) {
    return kind.isOfDisks || !kind.members.empty();
}

const FaultKind* FindKind(const std::string& name) {
    const auto& kinds = Kinds();
    const std::string head = name.substr(0, name.find('.'));
    const auto found = std::find_if(kinds.begin(), kinds.end(), [&](const FaultKind& kind) {
        return head == kind.name && (name.size() > head.size()) == IsFamily(kind);
    });
    return found == kinds.end() ? nullptr : &*found;
}

std::string WrongName(const std::string& name, const Names& disks) {
    Names known;
    for (const auto& kind : Kinds()) {
        if (!IsFamily(kind)) {
            known.push_back(kind.name);
        }
        for (const auto& member : kind.isOfDisks ? disks : kind.members) {
            known.push_back(kind.name + "." + member);
        }
    }
    // A tool's name may go on with the first argument of the runs that are meant.
    const auto point = name.starts_with("tool.") ? name.find('.', 5) : std::string::npos;
    const bool isKnown = std::find(known.begin(), known.end(), name.substr(0, point)) != known.end();
    return isKnown ? "" : "there is no fault " + name + WithKin(name, known) + " (fault --list)";
}

Names NamesOf(const std::vector<Action>& actions) {
    Names names;
    std::transform(actions.begin(), actions.end(), std::back_inserter(names),
                   [](const Action& action) { return action.name; });
    return names;
}

// What is wrong with the argument of an action, which is empty or begins with its colon.
std::string WrongArgument(const Action& action, const std::string& argument) {
    const auto count = ParseCount(std::string_view(argument).substr(argument.empty() ? 0 : 1));
    switch (action.argument) {
        case Argument::kMayRange:
            return RangeOf(argument)
                       ? ""
                       : action.name + " takes OFFSET+LENGTH, such as :4096+8192, not " + argument;
        case Argument::kMilliseconds:
            return count && *count <= kMostMilliseconds
                       ? ""
                       : action.name + " takes milliseconds, at most " + std::to_string(kMostMilliseconds) +
                             ", such as :20";
        case Argument::kMayCount:
            return argument.empty() || count ? "" : "no number belongs there: " + action.name + argument;
        case Argument::kNone:
            break;
    }
    return argument.empty() ? "" : "no number belongs there: " + action.name + argument;
}

std::string WrongAction(const FaultKind& kind, const std::string& value) {
    const std::string name = value.substr(0, value.find_first_of(":@x"));
    if (name == "ok") {
        return "";
    }
    const auto action = std::find_if(kind.actions.begin(), kind.actions.end(),
                                     [&](const Action& known) { return known.name == name; });
    if (action == kind.actions.end()) {
        return kind.name + " takes no action " + name + "; its actions are " + Joined(NamesOf(kind.actions)) +
               ", and ok, which ends them";
    }
    const std::string rest = value.substr(name.size());
    return WrongArgument(*action, rest.substr(0, std::min(rest.find_first_of("@x"), rest.size())));
}

}  // namespace

std::optional<ByteRange> RangeOf(std::string_view action) {
    const size_t colon = action.find(':');
    if (colon == std::string_view::npos) {
        return ByteRange{};
    }
    const std::string_view range = action.substr(colon + 1);
    const size_t plus = std::min(range.find('+'), range.size());
    const auto offset = ParseCount(range.substr(0, plus));
    const auto length = ParseCount(range.substr(std::min(plus + 1, range.size())));
    const bool isGood =
        offset && length && *length > 0 && *length < std::numeric_limits<uint64_t>::max() - *offset;
    return isGood ? std::optional(ByteRange{*offset, *length}) : std::nullopt;
}

std::string WrongFault(const std::string& name, const std::string& value, const Names& disks) {
    std::string wrong = WrongName(name, disks);
    const FaultKind* const kind = FindKind(name);
    if (!wrong.empty() || kind == nullptr) {
        return wrong;
    }
    return kind->actions.empty() ? "" : WrongAction(*kind, value);
}

std::string FaultKindsText() {
    std::string text;
    for (const auto& kind : Kinds()) {
        text += kind.name + (IsFamily(kind) ? ".NAME" : "") + "\n    " + std::string(kind.values) + "\n";
        if (kind.isOfDisks) {
            text += "    NAME: a disk's name below /dev, such as md3 or vg1/volume_1\n";
        }
        if (!kind.members.empty()) {
            text += "    NAME: " + Joined(kind.members) + "\n";
        }
    }
    return text;
}

}  // namespace simulation
