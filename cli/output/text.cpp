#include "output/text.h"

#include <fmt/format.h>

#include <algorithm>

#include "output/table.h"
#include "output/wrap.h"

namespace cli {
namespace {

// A sentence is wrapped to the terminal; what goes elsewhere keeps to a line a field.
std::string LabelledLines(const Field& field, std::size_t width, const Form& form) {
    const std::string label = fmt::format("  {:<{}}  ", field.label, width);
    const std::string value = ToText(field, form.bytes);
    if (field.format != Format::kSentence || form.columns == 0 || IsUnknown(field)) {
        return label + value + "\n";
    }
    const std::string wrapped =
        Wrapped(value, std::string(label.size(), ' '), std::max(form.columns, label.size() + 20));
    return label + wrapped.substr(label.size());
}

std::string BlockOf(const Record& record, const Form& form) {
    if (record.prose && !form.noHeadings) {
        return *record.prose;
    }
    std::size_t width = 0;
    for (const auto& field : record.fields) {
        width = std::max(width, field.label.size());
    }
    std::string text;
    for (const auto& field : record.fields) {
        if (field.hiddenIfUnknown && IsUnknown(field)) {
            continue;
        }
        if (form.noHeadings) {
            text += ToText(field, form.bytes) + "\n";
            continue;
        }
        text += field.opensGroup ? "\n" : "";
        text += LabelledLines(field, width, form);
    }
    return text;
}

std::string RecordsOf(const Answer& answer, const Form& form) {
    if (answer.records.empty()) {
        const bool isSaid = !answer.whenNone.empty() && !form.quiet && !form.noHeadings;
        return isSaid ? answer.whenNone + "\n" : "";
    }
    const bool isTold = std::all_of(answer.records.begin(), answer.records.end(),
                                    [](const Record& record) { return record.prose.has_value(); });
    if (answer.layout == Layout::kTable && (form.noHeadings || !isTold)) {
        return TableOf(answer.records, form);
    }
    std::string text;
    for (std::size_t i = 0; i < answer.records.size(); ++i) {
        text += (i == 0 || form.noHeadings ? "" : "\n") + BlockOf(answer.records[i], form);
    }
    return text;
}

std::string HeadlineOf(const Answer& answer, const Form& form) {
    const bool isSaid = answer.tellsHarm || !(form.quiet || form.noHeadings);
    return answer.headline.empty() || !isSaid ? "" : Printable(answer.headline) + "\n";
}

}  // namespace

std::string TextOf(const Answer& answer, const Form& form) {
    std::string text = HeadlineOf(answer, form) + RecordsOf(answer, form);
    if (!answer.total || (answer.total->prose && (answer.total->prose->empty() || form.noHeadings))) {
        return text;
    }
    return text + (form.noHeadings ? "" : "\n") + BlockOf(*answer.total, form);
}

std::string TextOf(const Failure& failure) {
    std::string text = "vemocachectl: " + Printable(failure.what) + "\n";
    if (!failure.why.empty()) {
        text += "  why:  " + Printable(failure.why) + "\n";
    }
    if (failure.slot && failure.slot->code != 0) {
        text += fmt::format("  code: 0x{:04X}, {} (recorded at {}:{})\n", failure.slot->code,
                            Meaning(failure.slot->code), Printable(failure.slot->file), failure.slot->line);
    }
    if (!failure.next.empty()) {
        text += "  next: " + Printable(failure.next) + "\n";
    }
    return text;
}

}  // namespace cli
