#include <fmt/format.h>

#include <algorithm>
#include <iterator>

#include "base/nearest.h"
#include "doctor/check.h"
#include "support/failure.h"

namespace cli {
namespace {

std::vector<Check> CollectChecks() {
    std::vector<Check> all;
    for (auto* of : {ConfigurationChecks, PresenceChecks, TuningChecks, DeviceChecks, SuperblockChecks,
                     VolumeChecks, FlushChecks, BlockChecks, ErrorChecks, ApplianceChecks, UnreadChecks}) {
        auto checks = of();
        std::move(checks.begin(), checks.end(), std::back_inserter(all));
    }
    return all;
}

}  // namespace

const std::vector<Check>& AllChecks() {
    static const std::vector<Check> checks = CollectChecks();
    return checks;
}

const Check& CheckOf(const std::string& code) {
    const auto& checks = AllChecks();
    const auto found =
        std::find_if(checks.begin(), checks.end(), [&](const Check& check) { return code == check.code; });
    if (found != checks.end()) {
        return *found;
    }
    std::vector<std::string> codes;
    codes.reserve(checks.size());
    for (const auto& check : checks) {
        codes.emplace_back(check.code);
    }
    const std::string kin = base::Nearest(code, codes);
    throw Failure{"wrong usage",
                  fmt::format("there is no check {}{}", code,
                              kin.empty() ? "" : fmt::format("; did you mean {}?", kin)),
                  "vemocachectl doctor --list-checks", std::nullopt, FailureKind::kUsage};
}

}  // namespace cli
