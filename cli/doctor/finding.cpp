#include "doctor/finding.h"

#include <array>
#include <utility>

namespace cli {
namespace {

constexpr std::array<std::pair<Severity, const char*>, 4> kSeverities = {{{Severity::kInfo, "info"},
                                                                          {Severity::kUnknown, "unknown"},
                                                                          {Severity::kWarning, "warning"},
                                                                          {Severity::kCritical, "critical"}}};

}  // namespace

std::string SeverityText(Severity severity) {
    for (const auto& [one, text] : kSeverities) {
        if (one == severity) {
            return text;
        }
    }
    return "";
}

std::optional<Severity> SeverityNamed(const std::string& text) {
    for (const auto& [severity, name] : kSeverities) {
        if (text == name) {
            return severity;
        }
    }
    return std::nullopt;
}

}  // namespace cli
