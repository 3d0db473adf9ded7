#include "output/shape.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <list>
#include <utility>

#include "base/nearest.h"
#include "output/filter.h"

namespace cli {
namespace {

std::vector<std::string> Split(const std::string& keys) {
    std::vector<std::string> parts;
    std::size_t begin = 0;
    for (auto comma = keys.find(','); comma != std::string::npos; comma = keys.find(',', begin)) {
        parts.push_back(keys.substr(begin, comma - begin));
        begin = comma + 1;
    }
    parts.push_back(keys.substr(begin));
    return parts;
}

auto Lookup(const Record& record, const std::string& key) {
    return std::find_if(record.fields.begin(), record.fields.end(),
                        [&](const Field& field) { return field.key == key; });
}

const Field& Named(const Record& record, const std::string& key) {
    const auto field = Lookup(record, key);
    if (field == record.fields.end()) {
        std::vector<std::string> known;
        known.reserve(record.fields.size());
        for (const auto& one : record.fields) {
            known.push_back(one.key);
        }
        const std::string kin = base::Nearest(key, known);
        throw Failure{"wrong usage",
                      fmt::format("the answer has no field \"{}\"; its fields are {}{}", key,
                                  fmt::join(known, ", "), kin.empty() ? "" : "; did you mean " + kin + "?"),
                      "", std::nullopt, FailureKind::kUsage};
    }
    return *field;
}

Record Chosen(const Record& record, const std::vector<std::string>& keys) {
    Record chosen;
    for (const auto& key : keys) {
        Field field = Named(record, key);
        field.opensGroup = false;
        field.hiddenIfUnknown = false;  // what was asked for has its place
        chosen.fields.push_back(std::move(field));
    }
    return chosen;
}

// By the value; names in the order of the numbers in them.
bool IsLess(const Field& a, const Field& b) {
    if (a.value.index() == b.value.index() && !std::holds_alternative<std::string>(a.value)) {
        return a.value < b.value;
    }
    return strverscmp(ToText(a).c_str(), ToText(b).c_str()) < 0;
}

void Sort(std::vector<Record>& records, const std::string& sort) {
    const bool falls = sort.starts_with('-');
    const std::string key = sort.substr(falls ? 1 : 0);
    for (const auto& record : records) {
        static_cast<void>(Named(record, key));
    }
    // A list's own sort keeps the order of equals without the library's deprecated buffers.
    std::list<Record> sorted(std::make_move_iterator(records.begin()),
                             std::make_move_iterator(records.end()));
    sorted.sort([&](const Record& left, const Record& right) {
        const Field& a = *Lookup(left, key);
        const Field& b = *Lookup(right, key);
        if (IsUnknown(a) != IsUnknown(b)) {
            return IsUnknown(b);  // what is not known comes last either way
        }
        return falls ? IsLess(b, a) : IsLess(a, b);
    });
    records.assign(std::make_move_iterator(sorted.begin()), std::make_move_iterator(sorted.end()));
}

bool PassesAll(const Record& record, const std::vector<Filter>& filters) {
    // All of them are looked at: a key that is none is told of, whatever the others say.
    return std::count_if(filters.begin(), filters.end(), [&](const Filter& filter) {
               return Passes(Named(record, filter.key), filter);
           }) == static_cast<std::ptrdiff_t>(filters.size());
}

void Choose(Answer& answer, const std::vector<std::string>& texts) {
    if (answer.layout == Layout::kRecord) {
        throw Failure{"wrong usage", "--filter chooses among records, and this answer is a single one",
                      "vemocachectl --help", std::nullopt, FailureKind::kUsage};
    }
    std::vector<Filter> filters;
    std::transform(texts.begin(), texts.end(), std::back_inserter(filters), FilterOf);
    if (!answer.records.empty()) {
        answer.whenNone = "The filter leaves nothing.";
    }
    std::erase_if(answer.records, [&](const Record& record) { return !PassesAll(record, filters); });
    answer.total.reset();  // it is that of all
}

}  // namespace

Answer Shaped(Answer answer, const Form& form) {
    if (!form.filters.empty()) {
        Choose(answer, form.filters);
    }
    if (!form.sort.empty()) {
        Sort(answer.records, form.sort);
    }
    if (!form.fields.empty()) {
        const auto keys = Split(form.fields);
        for (auto& record : answer.records) {
            record = Chosen(record, keys);
        }
        answer.total.reset();
    }
    return answer;
}

}  // namespace cli
