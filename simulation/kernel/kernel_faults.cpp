// What is to go wrong, as it is set from outside.
#include <unistd.h>

#include "simulation/common/count.h"
#include "simulation/kernel/fault_kinds.h"
#include "simulation/kernel/kernel.h"

namespace simulation {

namespace {

constexpr std::string_view kFileFault = "file.";

}  // namespace

Answer Kernel::TakeFault(const Words& arguments) {
    return {0, faults_.Take(arguments[0])};
}

Answer Kernel::SetFault(const Words& arguments) {
    const std::string& name = arguments[0];
    const std::string& value = arguments[1];
    const std::string wrong = WrongFault(name, value);
    if (!wrong.empty()) {
        return {EINVAL, wrong};
    }
    if (name == "cleaning") {
        return SetCleaning(value);
    }
    if (name == "power") {
        return SetPower(value);
    }
    if (name == "errors") {
        return SetReportedErrors(value);
    }
    if (name.starts_with(kFileFault)) {
        const std::string file = name.substr(kFileFault.size());
        forcedTexts_.erase(file);
        if (value != "ok") {
            forcedTexts_[file] = value;
        }
        return {};
    }
    return faults_.Set(name, value) ? Answer{} : Answer{EINVAL, "not ACTION[@SKIP][xTIMES]: " + value};
}

Answer Kernel::ListFaults(const Words& /*arguments*/) {
    std::string text = faults_.Text();
    for (const auto& [file, forced] : forcedTexts_) {
        text += std::string(kFileFault) + file + " " + std::to_string(forced.size()) + " bytes of text\n";
    }
    if (pace_.Paused()) {
        text += "cleaning pause\n";
    }
    return {0, text};
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
    return faults_.Set("power", value) ? Answer{} : Answer{EINVAL, "not cut[@WRITES]: " + value};
}

void Kernel::UsePower() {
    if (!faults_.Take("power").empty()) {
        _exit(kPowerCutCode);
    }
}

}  // namespace simulation
