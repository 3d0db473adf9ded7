// What a check found, or why it could not tell.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "output/record.h"

namespace cli {

// From the least to the worst. What could not be told is a result of its own kind.
enum class Severity { kInfo, kUnknown, kWarning, kCritical };
std::string SeverityText(Severity severity);  // "info", "unknown", "warning", "critical"
std::optional<Severity> SeverityNamed(const std::string& text);

// Whether data can be lost, be it at once or by the wrong next step.
enum class DataLoss { kNo, kYes, kUnknown };

struct Finding {
    std::string summary;  // a sentence without its end, about one cache where there is one
    // NOLINTBEGIN(readability-redundant-member-init): g++ warns of a member left out, unless it has one.
    std::vector<Field> details = {};  // what it was judged by; the keys are never renamed
    // To be pasted as they are; none destroys anything.
    std::vector<std::string> commands = {};
    std::string advice = {};  // in words, also of what destroys
    // How much of it there is: a mute ends when it grows.
    std::uint64_t count = 1;
    std::optional<Severity> severity = {};  // nothing: that of its check
    std::optional<DataLoss> dataLoss = {};
    std::vector<std::string> caches = {};  // names; none: the appliance as a whole

    std::string code = {};                        // of its check
    std::optional<std::int64_t> mutedUntil = {};  // seconds since 1970
    // NOLINTEND(readability-redundant-member-init)
};

}  // namespace cli
