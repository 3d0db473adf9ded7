// What is to go wrong, as it is set from outside.
#include <unistd.h>

#include <chrono>
#include <system_error>
#include <thread>

#include "simulation/common/count.h"
#include "simulation/kernel/fault_kinds.h"
#include "simulation/kernel/kernel.h"

namespace simulation {

namespace {

constexpr std::string_view kFileFault = "file.";

// As faults call it: what follows "/dev/".
std::string NameOf(const Disk& disk) {
    return disk.Path().substr(5);
}

bool Concerns(std::string_view action, const DiskRequest& request) {
    const ByteRange range = RangeOf(action).value_or(ByteRange{});
    return range.IsAll() ||
           (request.offset < range.offset + range.length && range.offset < request.offset + request.length);
}

}  // namespace

Answer Kernel::TakeFault(const Words& arguments) {
    return {0, faults_.Take(arguments[0])};
}

Answer Kernel::SetFault(const Words& arguments) {
    const std::string& name = arguments[0];
    const std::string& value = arguments[1];
    std::vector<std::string> disks;
    for (const Disk& disk : disks_) {
        disks.push_back(NameOf(disk));
    }
    const std::string wrong = WrongFault(name, value, disks);
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

// What is to befall a request to a disk.
void Kernel::UseDisk(const Disk& disk, const DiskRequest& request) {
    if (!faults_.AreSet()) {
        return;
    }
    const bool reads = request.use == DiskUse::kRead;
    if (!reads) {
        UsePower();
    }
    const std::string wait = faults_.Take("latency." + NameOf(disk));
    if (!wait.empty()) {
        const auto milliseconds = ParseCount(std::string_view(wait).substr(wait.find(':') + 1)).value_or(0);
        std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
    }
    const std::string name = (reads ? "read." : "write.") + NameOf(disk);
    if (Concerns(faults_.Peek(name), request) && !faults_.Take(name).empty()) {
        throw std::system_error(EIO, std::generic_category(), disk.Path());
    }
}

void Kernel::UsePower() {
    if (!faults_.Take("power").empty()) {
        _exit(kPowerCutCode);
    }
}

}  // namespace simulation
