// What goes wrong with the simulated kernel when it is told so from outside.
#include <unistd.h>

#include <algorithm>
#include <charconv>

#include "simulation/kernel/kernel.h"

namespace simulation {

std::optional<uint64_t> ParseCount(const std::string& text) {
    uint64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && end == text.data() + text.size() ? std::optional(value) : std::nullopt;
}

Answer Kernel::TakeFault(const Words& arguments) {
    return {0, faults_.Take(arguments[0])};
}

Answer Kernel::SetFault(const Words& arguments) {
    const std::string& name = arguments[0];
    const std::string& value = arguments[1];
    if (name == "cleaning") {
        return SetCleaning(value);
    }
    if (name == "power") {
        return SetPower(value);
    }
    if (name == "errors") {
        return SetReportedErrors(value);
    }
    if (name.starts_with("file.")) {
        const std::string file = name.substr(5);
        forcedTexts_.erase(file);
        if (value != "ok") {
            forcedTexts_[file] = value;
        }
        return {};
    }
    const bool known =
        name == "writeback" || name == "remove" || name.starts_with("tool.") || name == "knob.*" ||
        std::any_of(kKnobs.begin(), kKnobs.end(),
                    [&](const KnobInfo& knob) { return name == "knob." + std::string(knob.name); });
    if (!known) {
        return {EINVAL, "no such fault: " + name};
    }
    return faults_.Set(name, value) ? Answer{} : Answer{EINVAL, "not ACTION[@SKIP][xTIMES]: " + value};
}

Answer Kernel::SetCleaning(const std::string& value) {
    if (value == "pause" || value == "run") {
        pace_.Pause(value == "pause");
        return {};
    }
    auto count = ParseCount(value);
    if (!count) {
        return {EINVAL, "cleaning takes pause, run or a number of blocks, not " + value};
    }
    pace_.Pause(true);
    for (const auto& [name, cache] : caches_) {
        *count -= cache->CleanBlocks(*count);
    }
    return {};
}

Answer Kernel::SetReportedErrors(const std::string& value) {
    const auto count = ParseCount(value);
    if (!count) {
        return {EINVAL, "errors takes a number, not " + value};
    }
    for (const auto& [name, cache] : caches_) {
        cache->ReportErrors(*count);
    }
    return {};
}

// "cut" alone cuts the power as soon as the answer is given, "cut@N" after N more writes and flushes.
Answer Kernel::SetPower(const std::string& value) {
    if (value == "cut") {
        powerIsCut_ = true;
        return {};
    }
    const bool known = value == "ok" || value.starts_with("cut@");
    return known && faults_.Set("power", value) ? Answer{} : Answer{EINVAL, "not cut[@WRITES]: " + value};
}

void Kernel::UsePower() {
    if (!faults_.Take("power").empty()) {
        _exit(kPowerCutCode);
    }
}

}  // namespace simulation
