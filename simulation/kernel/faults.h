#pragma once

#include <cstdint>
#include <map>
#include <string>

namespace simulation {

// What is to go wrong, set from outside while the appliance runs.
//
//  A rule reads ACTION[@SKIP][xTIMES]: the first SKIP uses go well, then TIMES uses (all, when not given)
// meet the action. "reject@3x1" lets three writes pass, rejects the fourth and lets the rest pass. "ok" ends
// a rule.
class Faults {
  public:
    // False when the rule does not parse; nothing changes then.
    bool Set(const std::string& name, const std::string& rule);
    bool AreSet() const { return !rules_.empty(); }
    // The action of `name` whether or not it is due; "" when none is set.
    std::string Peek(const std::string& name) const;
    // Counts one use of `name` and returns the action that it meets, "" when it goes well.
    std::string Take(const std::string& name);
    // The rules that are set, each as a line "NAME RULE", with what is left of its numbers.
    std::string Text() const;

  private:
    struct Rule {
        std::string action;
        uint64_t skip = 0;
        uint64_t times = 0;
    };
    std::map<std::string, Rule> rules_;
};

}  // namespace simulation
