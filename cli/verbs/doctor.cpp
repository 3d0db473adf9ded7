#include <fmt/format.h>

#include <algorithm>
#include <ctime>
#include <iterator>

#include "doctor/describe_finding.h"
#include "doctor/doctor.h"
#include "doctor/mutes.h"
#include "output/answer.h"
#include "support/time.h"
#include "verbs/verb.h"

namespace cli {
namespace {

constexpr int kCouldNotTell = 3;

constexpr const char* kExits =
    "  0  nothing is wrong, or infos alone\n"
    "  1  a warning\n"
    "  2  something critical\n"
    "  3  something could not be told; or the command failed, wrong usage included\n";

struct DoctorOptions {
    std::string cache;
    std::vector<std::string> checks;
    std::string explain;
    bool listChecks = false;
    bool deep = false;
    std::string mute;
    std::string duration;
    std::string unmute;
    bool listMutes = false;
};

std::int64_t Now() {
    return std::time(nullptr);
}

// Only those of the cache, and those of the appliance as a whole.
void KeepThoseOf(std::vector<Finding>& findings, const std::string& cache) {
    std::erase_if(findings, [&](const Finding& finding) {
        const auto& caches = finding.caches;
        return !caches.empty() && std::find(caches.begin(), caches.end(), cache) == caches.end();
    });
}

std::string NothingWrong(const Facts& facts, bool ofAllChecks) {
    const std::size_t count = facts.caches.size();
    const std::string whole = !facts.chosen.empty() ? fmt::format(" with {}.", facts.chosen)
                              : count == 0          ? "; there are no caches."
                              : count == 1          ? " with 1 cache."
                                                    : fmt::format(" with {} caches.", count);
    return (ofAllChecks ? "Nothing is wrong" : "The chosen checks find nothing wrong") + whole;
}

// Each kind in its order.
std::vector<Finding> WithMutedLast(const std::vector<Finding>& findings) {
    std::vector<Finding> sorted;
    sorted.reserve(findings.size());
    const auto isMuted = [](const Finding& finding) { return finding.mutedUntil.has_value(); };
    std::remove_copy_if(findings.begin(), findings.end(), std::back_inserter(sorted), isMuted);
    std::copy_if(findings.begin(), findings.end(), std::back_inserter(sorted), isMuted);
    return sorted;
}

// The findings to be shown, those that are muted last.
std::vector<Finding> FindingsOf(const Facts& facts, const std::set<std::string>& codes) {
    const auto all = Diagnose(facts);
    auto shown = Diagnose(facts, codes);
    if (!ApplyMutes(shown, all, Now())) {
        Note("a mute has ended, but that could not be stored: it may come back");
    }
    if (!facts.chosen.empty()) {
        KeepThoseOf(shown, facts.chosen);
    }
    return WithMutedLast(shown);
}

void Examine(Context& context, const DoctorOptions& options) {
    const std::set<std::string> codes(options.checks.begin(), options.checks.end());
    for (const auto& code : codes) {
        static_cast<void>(CheckOf(code));
    }
    const Facts facts = GatherFacts({options.deep, options.cache});
    const auto findings = FindingsOf(facts, codes);
    Answer answer{"findings", Layout::kTable, {}, "", NothingWrong(facts, codes.empty())};
    for (const auto& finding : findings) {
        answer.records.push_back(DescribeFinding(finding, context.form));
    }
    const Totals totals = TotalsOf(findings);
    answer.total = totals.Fields(facts.caches.size());
    if (findings.empty()) {
        answer.total->prose = "";
    }
    context.exitCode = totals.ExitCode();
    Print(answer, context.json);
}

void ListChecks(Context& context, const DoctorOptions& /*options*/) {
    Answer answer{"checks", Layout::kTable, {}, "", ""};
    for (const auto& check : AllChecks()) {
        answer.records.push_back(CheckSummary(check));
        MayGiveWay(answer.records.back(), {"data_loss"});
    }
    Print(answer, context.json);
}

Record DescribeMute(const Mute& mute) {
    return {{{"code", "Code", mute.code},
             {"cache", "Cache", KnownText(mute.cache)},
             {"muted_until", "Until", IsoTime(mute.until)},
             {"severity", "Was", SeverityText(mute.severity)},
             {"count", "Count", mute.count}}};
}

void ListMutes(Context& context, const DoctorOptions& /*options*/) {
    Answer answer{"mutes", Layout::kTable, {}, "", "Nothing is muted."};
    for (const auto& mute : ReadMutes(Now())) {
        answer.records.push_back(DescribeMute(mute));
    }
    Print(answer, context.json);
}

// The code and the cache of "CODE" or "CODE:CACHE", the cache as it was named.
std::pair<std::string, std::string> SplitMute(const std::string& text) {
    const auto colon = text.find(':');
    const std::string code = text.substr(0, colon);
    static_cast<void>(CheckOf(code));
    return {code, colon == std::string::npos ? "" : text.substr(colon + 1)};
}

// What changes the mutes cannot be refused for its form any more.
void BeginChange(const Context& context) {
    Form form = context.form;
    form.isTooLate = true;
    SetForm(form);
}

void AddMute(Context& context, const DoctorOptions& options) {
    const auto [code, cache] = SplitMute(options.mute);
    const auto span = ParseSpan(options.duration);
    if (!span) {
        throw Failure{
            "wrong usage",
            fmt::format("\"{}\" is no time such as 30m, 12h, 7d or 4w, a year at most", options.duration),
            fmt::format("vemocachectl doctor --mute {} --for 7d", options.mute), std::nullopt,
            FailureKind::kUsage};
    }
    const Facts facts = GatherFacts({options.deep, cache});
    BeginChange(context);
    const Mute muted = MuteFindings({code, facts.chosen, Now() + span->count()}, Diagnose(facts), Now());
    Print(One("mute", DescribeMute(muted),
              fmt::format("Muted {} until {}, unless it grows worse.", NameOf(muted), TimeText(muted.until))),
          context.json);
}

void RemoveMute(Context& context, const DoctorOptions& options) {
    const auto [code, cache] = SplitMute(options.unmute);
    BeginChange(context);
    Unmute(code, cache, Now());
    Print(One("unmuted", Record{{{"code", "Code", code}, {"cache", "Cache", KnownText(cache)}}},
              fmt::format("{} is muted no more.", options.unmute)),
          context.json);
}

void Doctor(Context& context, const DoctorOptions& options) {
    if (!options.mute.empty()) {
        AddMute(context, options);
    } else if (!options.unmute.empty()) {
        RemoveMute(context, options);
    } else if (options.listMutes) {
        ListMutes(context, options);
    } else if (options.listChecks) {
        ListChecks(context, options);
    } else if (!options.explain.empty()) {
        Print(One("check", CheckDetails(CheckOf(options.explain))), context.json);
    } else {
        Examine(context, options);
    }
}

std::vector<Argument> DeclareDoctor(DoctorOptions& options) {
    return {{.name = "CACHE",
             .help = fmt::format("{}; all when left out", kCacheHelp),
             .target = &options.cache,
             .completion = Completion::kCache},
            {.name = "--check",
             .help = "make the check of this code alone; may be repeated",
             .target = &options.checks,
             .completion = Completion::kCheck,
             .valueName = "CODE"},
            {.name = "--deep",
             .help = "also read what takes long: the block lists of large caches that are not up",
             .target = &options.deep},
            {.name = "--explain",
             .help = "tell what a check's code means",
             .target = &options.explain,
             .excludes = {"CACHE", "--check"},
             .completion = Completion::kCheck,
             .valueName = "CODE"},
            {.name = "--list-checks",
             .help = "list all checks",
             .target = &options.listChecks,
             .excludes = {"CACHE", "--check", "--explain"}},
            {.name = "--mute",
             .help = "do not count CODE or CODE:CACHE for a time, until it grows worse",
             .target = &options.mute,
             .needs = {"--for"},
             .excludes = {"CACHE", "--check", "--explain", "--list-checks"},
             .completion = Completion::kMute,
             .valueName = "CODE[:CACHE]"},
            {.name = "--for",
             .help = "how long: 30m, 12h, 7d, 4w",
             .target = &options.duration,
             .needs = {"--mute"},
             .valueName = "TIME"},
            {.name = "--unmute",
             .help = "end the mute CODE or CODE:CACHE",
             .target = &options.unmute,
             .excludes = {"CACHE", "--check", "--explain", "--list-checks", "--mute"},
             .completion = Completion::kMute,
             .valueName = "CODE[:CACHE]"},
            {.name = "--mutes",
             .help = "list the mutes",
             .target = &options.listMutes,
             .excludes = {"CACHE", "--check", "--explain", "--list-checks", "--mute", "--unmute"}}};
}

}  // namespace

Verb DoctorVerb() {
    Verb verb = Report(MakeVerb<DoctorOptions>(
        "doctor",
        "Tell all that is wrong with the caches, whether data can be lost, and the commands that mend it",
        "vemocachectl doctor\n  vemocachectl doctor --explain VFC-D010\n"
        "  vemocachectl doctor --mute VFC-D033:md3+volume_1 --for 4w",
        DeclareDoctor, Doctor));
    verb.canDryRun = true;  // of its mutes
    verb.exits = kExits;
    verb.failureCode = kCouldNotTell;
    return verb;
}

}  // namespace cli
