#include "simulation/kernel/faults.h"

#include <limits>
#include <string_view>

#include "simulation/common/count.h"

namespace simulation {

namespace {

constexpr auto kAlways = std::numeric_limits<uint64_t>::max();

// Takes `mark` and the number behind it off the end of a rule; true also when the mark is not there.
bool TakeNumber(std::string_view& rule, char mark, uint64_t& number) {
    const size_t at = rule.rfind(mark);
    if (at == std::string_view::npos) {
        return true;
    }
    const auto parsed = ParseCount(rule.substr(at + 1));
    number = parsed.value_or(number);
    rule = rule.substr(0, at);
    return parsed.has_value();
}

}  // namespace

bool Faults::Set(const std::string& name, const std::string& rule) {
    Rule parsed;
    parsed.times = kAlways;
    std::string_view rest = rule;
    if (!TakeNumber(rest, 'x', parsed.times) || !TakeNumber(rest, '@', parsed.skip) || rest.empty()) {
        return false;
    }
    rules_.erase(name);
    if (rest != "ok") {
        parsed.action = rest;
        rules_[name] = parsed;
    }
    return true;
}

std::string Faults::Peek(const std::string& name) const {
    const auto found = rules_.find(name);
    return found == rules_.end() ? "" : found->second.action;
}

std::string Faults::Take(const std::string& name) {
    const auto found = rules_.find(name);
    if (found == rules_.end()) {
        return "";
    }
    Rule& rule = found->second;
    if (rule.skip > 0) {
        --rule.skip;
        return "";
    }
    if (rule.times == 0) {
        return "";
    }
    rule.times -= rule.times == kAlways ? 0 : 1;
    return rule.action;
}

std::string Faults::Text() const {
    std::string text;
    for (const auto& [name, rule] : rules_) {
        text += name + " " + rule.action + (rule.skip > 0 ? "@" + std::to_string(rule.skip) : "") +
                (rule.times != kAlways ? "x" + std::to_string(rule.times) : "") + "\n";
    }
    return text;
}

}  // namespace simulation
