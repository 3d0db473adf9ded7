#include <fmt/format.h>

#include "output/filter.h"
#include "verbs/verb.h"

namespace cli {
namespace {

std::string CheckKeys(const std::string& keys) {
    return keys.empty() || keys == "-" ? "a field is named by its key in JSON" : "";
}

std::vector<Argument> FormArguments(Form& form) {
    return {{.name = "-o,--output",
             .help = "the fields to show, by their keys in JSON, in this order",
             .target = &form.fields,
             .check = CheckKeys,
             .valueName = "FIELD,..."},
            {.name = "--sort",
             .help = "the field to sort by; with a \"-\" before it from high to low",
             .target = &form.sort,
             .check = CheckKeys,
             .valueName = "FIELD"},
            {.name = "--filter",
             .help = "only records whose field is so: state=running; also != and, of numbers, < > <= >=; may "
                     "be repeated",
             .target = &form.filters,
             .check = WhyNoFilter,
             .valueName = "FIELD=VALUE"},
            {.name = "--bytes", .help = "show sizes as exact numbers of bytes", .target = &form.bytes},
            {.name = "--no-headings",
             .help = "show values alone, without headings and labels",
             .target = &form.noHeadings},
            {.name = "--wide", .help = "show all columns, however narrow the terminal", .target = &form.wide},
            {.name = "-q,--quiet",
             .help = "no remarks, progress and headlines unless something is wrong",
             .target = &form.quiet}};
}

}  // namespace

std::vector<Argument> GeneralArguments(Context& context) {
    std::vector<Argument> arguments = {
        {.name = "--json", .help = "answer with JSON", .target = &context.json}};
    for (auto& argument : FormArguments(context.form)) {
        arguments.push_back(std::move(argument));
    }
    arguments.push_back({.name = "-v,--verbose",
                         .help = "show the library's log on standard error",
                         .target = &context.verbose});
    return arguments;
}

std::string ExitCodesOf(const Verb& verb) {
    if (!verb.exits.empty()) {
        return verb.exits;
    }
    return verb.no.empty() ? "" : fmt::format("  0  yes\n  3  no: {}\n", verb.no);
}

std::vector<std::string> SpellingsOf(const Argument& argument) {
    const auto comma = argument.name.find(',');
    return comma == std::string::npos
               ? std::vector<std::string>{argument.name}
               : std::vector<std::string>{argument.name.substr(0, comma), argument.name.substr(comma + 1)};
}

std::string InShort(const std::string& help) {
    return help.substr(0, help.find_first_of(";."));
}

}  // namespace cli
