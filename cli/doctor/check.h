// The one description of the checks: doctor, its explanations and lists, metrics and documentation read it.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "doctor/facts.h"
#include "doctor/finding.h"

namespace cli {

// A check judges facts, and nothing else: it reads no file, asks no kernel. It has one of two forms.
using CacheCheck = std::optional<Finding> (*)(const CacheFacts& cache);
using ApplianceCheck = std::vector<Finding> (*)(const Facts& facts);

struct Check {
    const char* code;   // such as "VFC-D012"; never given to another check
    Severity severity;  // of its findings, where they say nothing else
    DataLoss dataLoss;  // likewise
    const char* title;  // at most 50 characters
    const char* explanation;
    // NOLINTBEGIN(readability-redundant-member-init): g++ warns of a member left out, unless it has one.
    std::vector<Source> needs = {};  // what it cannot do without
    CacheCheck ofCache = nullptr;
    ApplianceCheck ofAppliance = nullptr;
    std::optional<Source> tellsUnread = {};  // it tells that this could not be read, and does nothing else
    // NOLINTEND(readability-redundant-member-init)
};

// All of them, by code.
const std::vector<Check>& AllChecks();

// Throws a Failure (wrong usage) for a code that no check has.
const Check& CheckOf(const std::string& code);

// The checks of each subject, each in the file of its name.
std::vector<Check> UnreadChecks();
std::vector<Check> ConfigurationChecks();
std::vector<Check> PresenceChecks();
std::vector<Check> TuningChecks();
std::vector<Check> DeviceChecks();
std::vector<Check> SuperblockChecks();
std::vector<Check> VolumeChecks();
std::vector<Check> FlushChecks();
std::vector<Check> BlockChecks();
std::vector<Check> ErrorChecks();
std::vector<Check> ApplianceChecks();

}  // namespace cli
