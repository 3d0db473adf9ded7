#include <fmt/format.h>

#include <algorithm>
#include <tuple>

#include "doctor/doctor.h"

namespace cli {
namespace {

bool Needs(const Check& check, Source source) {
    return std::find(check.needs.begin(), check.needs.end(), source) != check.needs.end();
}

void AddFinding(std::vector<Finding>& findings, const Check& check, Finding finding) {
    finding.code = check.code;
    finding.severity = finding.severity.value_or(check.severity);
    finding.dataLoss = finding.dataLoss.value_or(check.dataLoss);
    findings.push_back(std::move(finding));
}

void RunCheck(const Check& check, const Facts& facts, std::vector<Finding>& findings) {
    if (check.ofAppliance != nullptr) {
        for (auto& finding : check.ofAppliance(facts)) {
            AddFinding(findings, check, std::move(finding));
        }
    }
    for (const auto& cache : facts.caches) {
        auto finding = check.ofCache == nullptr ? std::nullopt : check.ofCache(cache);
        if (finding) {
            finding->caches.insert(finding->caches.begin(), cache.name);
            AddFinding(findings, check, std::move(*finding));
        }
    }
}

// What could not be read, with the chosen checks that were not made for it.
void TellUnread(const Check& teller, const Facts& facts, const std::vector<const Check*>& chosen,
                std::vector<Finding>& findings) {
    Texts codes;
    for (const Check* check : chosen) {
        if (Needs(*check, *teller.tellsUnread)) {
            codes.emplace_back(check->code);
        }
    }
    const bool isChosen = std::find(chosen.begin(), chosen.end(), &teller) != chosen.end();
    for (const auto& unread : facts.unread) {
        if (unread.source != teller.tellsUnread || (codes.empty() && !isChosen)) {
            continue;
        }
        Finding finding{fmt::format("{}: {}.", teller.title, unread.why)};
        finding.details = {{"checks_not_made", "Not checked", codes}};
        if (!unread.cache.empty()) {
            finding.caches = {unread.cache};
        }
        AddFinding(findings, teller, std::move(finding));
    }
}

}  // namespace

std::vector<Finding> Diagnose(const Facts& facts, const std::set<std::string>& codes) {
    std::vector<const Check*> chosen;
    for (const auto& check : AllChecks()) {
        if (codes.empty() || codes.contains(check.code)) {
            chosen.push_back(&check);
        }
    }
    std::vector<Finding> findings;
    for (const Check* check : chosen) {
        RunCheck(*check, facts, findings);
    }
    for (const auto& check : AllChecks()) {
        if (check.tellsUnread) {
            TellUnread(check, facts, chosen, findings);
        }
    }
    std::sort(findings.begin(), findings.end(), [](const Finding& a, const Finding& b) {
        return std::tie(b.severity, a.code, a.caches, a.summary) <
               std::tie(a.severity, b.code, b.caches, b.summary);
    });
    return findings;
}

}  // namespace cli
