#include "doctor/describe_finding.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>

#include "doctor/mutes.h"
#include "output/wrap.h"

namespace cli {
namespace {

Value LossValue(DataLoss loss) {
    return loss == DataLoss::kUnknown ? Value() : Value(loss == DataLoss::kYes);
}

std::string LossText(DataLoss loss) {
    return loss == DataLoss::kYes ? "yes" : loss == DataLoss::kNo ? "no" : "not known";
}

std::size_t ProseWidth(const Form& form) {
    return form.columns == 0 ? kProseWidth : std::min(form.columns, kProseWidth);
}

std::string DetailLines(const std::vector<Field>& details, const Form& form) {
    std::size_t width = 0;
    for (const auto& detail : details) {
        width = std::max(width, detail.label.size());
    }
    std::string text;
    for (const auto& detail : details) {
        const std::string label = fmt::format("    {:<{}}  ", detail.label, width);
        const std::string value = ToText(detail, form.bytes);
        if (label.size() + value.size() <= ProseWidth(form)) {
            text += label + value + "\n";
        } else {
            text += Wrapped(label, "    ") + Wrapped(value, "      ", ProseWidth(form));
        }
    }
    return text;
}

std::string HeadOf(const Finding& finding, const std::string& rank) {
    return fmt::format("{:<8}  {}{}\n", rank, finding.code,
                       finding.caches.empty() ? "" : fmt::format("  {}", fmt::join(finding.caches, ", ")));
}

std::string MutedText(const Finding& finding, const Form& form) {
    return HeadOf(finding, "muted") +
           Wrapped(fmt::format("{} ({}, muted until {})", finding.summary, SeverityText(*finding.severity),
                               TimeText(*finding.mutedUntil)),
                   "  ", ProseWidth(form));
}

std::string ProseOf(const Finding& finding, const Form& form) {
    if (finding.mutedUntil) {
        return MutedText(finding, form);
    }
    std::string text = HeadOf(finding, SeverityText(*finding.severity)) +
                       Wrapped(finding.summary, "  ", ProseWidth(form)) + DetailLines(finding.details, form);
    if (*finding.severity != Severity::kUnknown) {
        text += fmt::format("  Can data be lost: {}\n", LossText(*finding.dataLoss));
    }
    text += Wrapped(finding.advice, "  ", ProseWidth(form));
    for (const auto& command : finding.commands) {
        text += fmt::format("  $ {}\n", Printable(command));
    }
    return text;
}

std::string Counted(std::uint64_t number, const char* one, const char* many) {
    return fmt::format("{} {}", number, number == 1 ? one : many);
}

}  // namespace

Record DescribeFinding(const Finding& finding, const Form& form) {
    const bool isMuted = finding.mutedUntil.has_value();
    Record record{{{"severity", "Severity", SeverityText(*finding.severity)},
                   {"code", "Code", finding.code},
                   {"caches", "Caches", finding.caches},
                   {"summary", "Summary", finding.summary, Format::kSentence},
                   {"count", "Count", finding.count},
                   {"data_loss", "Data loss", LossValue(*finding.dataLoss)},
                   {"muted", "Muted", isMuted},
                   {"muted_until", "Muted until", isMuted ? Value(IsoTime(*finding.mutedUntil)) : Value()},
                   {"details", "Details", {}, Format::kParts},
                   {"commands", "Commands", finding.commands},
                   {"advice", "Advice", KnownText(finding.advice)}}};
    for (auto& field : record.fields) {
        if (field.format == Format::kParts) {
            field.parts = finding.details;
        }
    }
    record.prose = ProseOf(finding, form);
    return record;
}

Record CheckSummary(const Check& check) {
    return {{{"code", "Code", check.code},
             {"severity", "Severity", SeverityText(check.severity)},
             {"data_loss", "Data loss", LossValue(check.dataLoss)},
             {"title", "Title", check.title}}};
}

Record CheckDetails(const Check& check) {
    Record record = CheckSummary(check);
    record.fields.push_back({"explanation", "Explanation", check.explanation});
    record.prose = fmt::format("{}  {}\n\n  Severity          {}\n  Can data be lost  {}\n\n", check.code,
                               check.title, SeverityText(check.severity), LossText(check.dataLoss)) +
                   Wrapped(check.explanation, "  ");
    return record;
}

Totals TotalsOf(const std::vector<Finding>& findings) {
    Totals totals;
    for (const auto& finding : findings) {
        std::uint64_t& count = finding.mutedUntil                        ? totals.muted
                               : finding.severity == Severity::kCritical ? totals.critical
                               : finding.severity == Severity::kWarning  ? totals.warning
                               : finding.severity == Severity::kUnknown  ? totals.unknown
                                                                         : totals.info;
        ++count;
    }
    return totals;
}

int Totals::ExitCode() const {
    constexpr int kWarningCode = 1;
    constexpr int kCriticalCode = 2;
    constexpr int kUnknownCode = 3;
    return critical > 0 ? kCriticalCode : warning > 0 ? kWarningCode : unknown > 0 ? kUnknownCode : 0;
}

Record Totals::Fields(std::uint64_t caches) const {
    Record record{{{"caches", "Caches", caches},
                   {"critical", "Critical", critical},
                   {"warning", "Warnings", warning},
                   {"unknown", "Unknown", unknown},
                   {"info", "Infos", info},
                   {"muted", "Muted", muted},
                   {"exit_code", "Exit code", std::int64_t{ExitCode()}}}};
    record.prose =
        fmt::format("{} critical, {}, {} could not be told, {}, {} muted.\n", critical,
                    Counted(warning, "warning", "warnings"), unknown, Counted(info, "info", "infos"), muted);
    return record;
}

}  // namespace cli
