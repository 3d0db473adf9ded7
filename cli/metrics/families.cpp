#include "metrics/families.h"

#include <fmt/format.h>

#include <cctype>
#include <map>

#include "caches/describe_entry.h"
#include "caches/kernel_state.h"
#include "stats/fields.h"

namespace cli {
namespace {

constexpr const char* kPrefix = "flashcache_";

std::string StateOf(const CacheFacts& cache) {
    return cache.IsUp() ? "running" : cache.IsKnownDown() ? "unloaded" : "unknown";
}

// As one that was read by itself.
Reading ReadingOf(const CacheFacts& cache) {
    Reading reading;
    reading.name = cache.name;
    reading.state = StateOf(cache);
    if (const auto mode = cache.Mode()) {
        reading.writeMode = WriteModeText(*mode);
    }
    reading.blockSize = cache.BlockSize();
    reading.dirtyBlocks = cache.DirtyBlocks();
    if (cache.kernel) {
        reading.counters = cache.kernel->counters.value_or(Counts());
        reading.errors = cache.kernel->errors.value_or(Counts());
        reading.totalBlocks = cache.kernel->blocks;
        reading.cachedBlocks = cache.kernel->cachedBlocks;
    }
    return reading;
}

std::string Sentence(std::string text) {
    text.front() = static_cast<char>(std::toupper(static_cast<unsigned char>(text.front())));
    return text + ".";
}

// Percentages are left to whoever asks: shares of sums are no sums of shares.
bool IsMetric(const StatField& field) {
    return field.view != View::kInterval && field.kind != Kind::kState && field.unit != Unit::kPercent;
}

Family FamilyOf(const StatField& field, const std::vector<Reading>& readings) {
    const bool isCounter = field.kind == Kind::kCounter;
    Family family{kPrefix + std::string(field.key), isCounter ? Family::Type::kCounter : Family::Type::kGauge,
                  field.unit == Unit::kBytes ? "bytes" : "", Sentence(field.meaning)};
    for (const auto& reading : readings) {
        const Field told{field.key, "", ValueOf(field, {reading, nullptr, {}})};
        if (!IsUnknown(told)) {
            family.samples.push_back({{{"cache", reading.name}}, ToText(told)});
        }
    }
    return family;
}

Family InfoOf(const Facts& facts) {
    Family family{"flashcache", Family::Type::kInfo, "", "What a cache is made of."};
    for (const auto& cache : facts.caches) {
        const auto mode = cache.Mode();
        family.samples.push_back({{{"cache", cache.name},
                                   {"device", cache.device},
                                   {"ssd", cache.ssd},
                                   {"volume", cache.volume},
                                   {"write_mode", mode ? ToText({"", "", WriteModeText(*mode)}) : ""}},
                                  "1"});
    }
    return family;
}

// Each state a sample, of which one is 1.
void AddStates(Family& family, const std::string& cache, const std::vector<std::string>& states,
               const std::string& current) {
    for (const auto& state : states) {
        family.samples.push_back({{{"cache", cache}, {family.name, state}}, state == current ? "1" : "0"});
    }
}

Family LoadStates(const Facts& facts) {
    Family family{"flashcache_state", Family::Type::kStateSet, "", "Whether a cache is up."};
    for (const auto& cache : facts.caches) {
        AddStates(family, cache.name, {"running", "unloaded", "unknown"}, StateOf(cache));
    }
    return family;
}

Family HandleStates(const Facts& facts) {
    Family family{"flashcache_handle_state", Family::Type::kStateSet, "",
                  "The regime in which a running cache works, as its knobs make it up."};
    std::vector<std::string> states;
    states.reserve(kHandleStates.size());
    for (const auto& [name, state] : kHandleStates) {
        states.push_back(name);
    }
    for (const auto& cache : facts.caches) {
        if (cache.kernel && cache.kernel->knobs) {
            AddStates(family, cache.name, states,
                      ToText({"", "", HandleStateText(HandleStateIn(*cache.kernel->knobs))}));
        }
    }
    return family;
}

Family SizeOf(const Facts& facts) {
    Family family{"flashcache_size_bytes", Family::Type::kGauge, "bytes", "What a running cache can hold."};
    for (const auto& cache : facts.caches) {
        if (cache.kernel && cache.kernel->blocks && cache.BlockSize() > 0) {
            family.samples.push_back(
                {{{"cache", cache.name}}, std::to_string(*cache.kernel->blocks * cache.BlockSize())});
        }
    }
    return family;
}

Family CountOf(const Facts& facts) {
    return {"flashcache_caches",
            Family::Type::kGauge,
            "",
            "How many caches are configured or running.",
            {{{}, std::to_string(facts.caches.size())}}};
}

const char* MutedText(const Finding& finding) {
    return finding.mutedUntil ? "yes" : "no";
}

Family FindingsOf(const std::vector<Finding>& findings) {
    Family family{"flashcache_finding", Family::Type::kGauge, "",
                  "How much there is of what vemocachectl doctor finds wrong."};
    for (const auto& finding : findings) {
        const auto caches = finding.caches.empty() ? std::vector<std::string>{""} : finding.caches;
        for (const auto& cache : caches) {
            family.samples.push_back({{{"cache", cache},
                                       {"code", finding.code},
                                       {"severity", SeverityText(SeverityOf(finding))},
                                       {"muted", MutedText(finding)}},
                                      std::to_string(finding.count)});
        }
    }
    return family;
}

// Zeros included: a series that is not there looks like a writer that died.
Family SumsOf(const std::vector<Finding>& findings) {
    std::map<std::pair<std::string, std::string>, int> sums;
    for (const Severity severity :
         {Severity::kInfo, Severity::kUnknown, Severity::kWarning, Severity::kCritical}) {
        for (const char* muted : {"no", "yes"}) {
            sums[{SeverityText(severity), muted}] = 0;
        }
    }
    for (const auto& finding : findings) {
        ++sums[{SeverityText(SeverityOf(finding)), MutedText(finding)}];
    }
    Family family{"flashcache_findings", Family::Type::kGauge, "",
                  "How many findings vemocachectl doctor has."};
    for (const auto& [key, number] : sums) {
        family.samples.push_back({{{"severity", key.first}, {"muted", key.second}}, std::to_string(number)});
    }
    return family;
}

}  // namespace

std::vector<Family> FamiliesOf(const Facts& facts, const std::vector<Finding>& findings) {
    std::vector<Reading> readings;
    readings.reserve(facts.caches.size());
    for (const auto& cache : facts.caches) {
        readings.push_back(ReadingOf(cache));
    }
    std::vector<Family> families = {CountOf(facts), InfoOf(facts), LoadStates(facts), HandleStates(facts),
                                    SizeOf(facts)};
    for (const auto& field : StatFields()) {
        if (IsMetric(field)) {
            families.push_back(FamilyOf(field, readings));
        }
    }
    families.push_back(FindingsOf(findings));
    families.push_back(SumsOf(findings));
    return families;
}

}  // namespace cli
