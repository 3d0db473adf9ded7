#include "manual/verb_page.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <sstream>

#include "manual/scdoc.h"

namespace manual {
namespace {

using cli::Argument;
using cli::Verb;

std::string Joined(const std::vector<std::string>& words, const char* between) {
    std::string text;
    for (const auto& word : words) {
        text += (text.empty() ? "" : between) + word;
    }
    return text;
}

// What the value of an option is called.
std::string ValueName(const Argument& argument) {
    if (!argument.valueName.empty()) {
        return argument.valueName;
    }
    return std::visit(
        [](auto* target) -> std::string {
            using Kind = std::remove_pointer_t<decltype(target)>;
            if constexpr (std::is_same_v<Kind, cli::ByteSize>) {
                return "SIZE";
            } else if constexpr (std::is_same_v<Kind, std::int32_t>) {
                return "NUMBER";
            } else {
                return "TEXT";
            }
        },
        argument.target);
}

std::string DefaultOf(const Argument& argument) {
    if (!argument.showsDefault) {
        return "";
    }
    const auto* text = std::get_if<std::string*>(&argument.target);
    const auto* number = std::get_if<std::int32_t*>(&argument.target);
    return text != nullptr ? **text : number != nullptr ? std::to_string(**number) : "";
}

// The rules for a value, in sentences behind the help.
std::string RulesOf(const Argument& argument) {
    std::string rules;
    const auto add = [&](const std::string& sentence) { rules += " " + sentence + "."; };
    if (!argument.choices.empty()) {
        add("One of " + Joined(argument.choices, ", "));
    }
    if (argument.range.lowest != INT32_MIN && argument.range.highest == INT32_MAX) {
        add(fmt::format("At least {}", argument.range.lowest));
    } else if (argument.range.lowest != INT32_MIN || argument.range.highest != INT32_MAX) {
        add(fmt::format("From {} to {}", argument.range.lowest, argument.range.highest));
    }
    if (const std::string value = DefaultOf(argument); !value.empty()) {
        add("Default: " + value);
    }
    if (!argument.needs.empty()) {
        add("Only with " + Joined(argument.needs, ", "));
    }
    if (!argument.excludes.empty()) {
        add("Not with " + Joined(argument.excludes, ", "));
    }
    return rules;
}

std::string Sentence(std::string text) {
    text.front() = static_cast<char>(std::toupper(static_cast<unsigned char>(text.front())));
    return text.ends_with('.') ? text : text + ".";
}

std::string TermOf(const Argument& argument) {
    if (!cli::IsOption(argument)) {
        return Underlined(argument.name);
    }
    std::string term;
    for (const auto& spelling : cli::SpellingsOf(argument)) {
        term += (term.empty() ? "" : ", ") + Bold(spelling);
    }
    return cli::IsFlag(argument) ? term : term + " " + Underlined(ValueName(argument));
}

std::string Describe(const std::vector<Argument>& arguments) {
    std::string text;
    for (const auto& argument : arguments) {
        text += Meaning(TermOf(argument), Plain(Sentence(argument.help) + RulesOf(argument)));
    }
    return text;
}

// "*vemocachectl knob set* [_OPTION_...] _CACHE_ _KNOB_ _VALUE_"
std::string Synopsis(const std::string& path, const Verb& verb) {
    std::string line = Bold(path);
    const bool hasOptions =
        verb.canDryRun || std::any_of(verb.arguments.begin(), verb.arguments.end(), cli::IsOption);
    line += hasOptions ? " \\[_OPTION_...\\]" : "";
    for (const auto& argument : verb.arguments) {
        if (!cli::IsOption(argument)) {
            const std::string term = TermOf(argument) + (cli::MayRepeat(argument) ? "..." : "");
            line += argument.required ? " " + term : " \\[" + term + "\\]";
        }
    }
    return line;
}

// The verbs that can be called: the verb itself, or those of a group.
struct Called {
    std::string path;
    const Verb* verb;
};

void Collect(const std::string& path, const Verb& verb, std::vector<Called>& called) {
    if (verb.action) {
        called.push_back({path + " " + verb.name, &verb});
    }
    for (const auto& child : verb.verbs) {
        Collect(path + " " + verb.name, child, called);
    }
}

std::string Describe(const Verb& verb) {
    std::string text = Describe(verb.arguments);
    if (verb.canDryRun) {
        text += Meaning(Bold("--dry-run"), Plain(Sentence(cli::kDryRunHelp)));
    }
    return text;
}

std::string Examples(const std::vector<Called>& called) {
    std::string lines;
    for (const auto& [path, verb] : called) {
        std::istringstream examples(verb->example);
        for (std::string line; std::getline(examples, line);) {
            lines += line.substr(std::min(line.find_first_not_of(' '), line.size())) + "\n";
        }
    }
    return lines.empty() ? "" : Heading("EXAMPLES") + Literal(lines);
}

std::string ExitStatus(const std::vector<Called>& called) {
    std::string text;
    for (const auto& [path, verb] : called) {
        const std::string codes = cli::ExitCodesOf(*verb);
        if (!codes.empty()) {
            text += called.size() > 1 ? Paragraph(Bold(path) + ":") : "";
            text += ExitCodes(codes);
        }
    }
    return Heading("EXIT STATUS") + text +
           Paragraph((text.empty() ? "" : "Other codes: see ") + std::string(text.empty() ? "See " : "") +
                     "*vemocachectl*(8).");
}

}  // namespace

std::string ExitCodes(const std::string& lines) {
    std::string text;
    std::istringstream source(lines);
    for (std::string line; std::getline(source, line);) {
        line.erase(0, line.find_first_not_of(' '));
        const auto end = line.find_first_not_of("0123456789");
        text += end == 0 ? Paragraph(Plain(Sentence(line)))
                         : Meaning(Bold(line.substr(0, end)),
                                   Plain(Sentence(line.substr(line.find_first_not_of(' ', end)))));
    }
    return text;
}

std::string VerbPage(const Verb& verb) {
    std::vector<Called> called;
    Collect("vemocachectl", verb, called);
    const std::string name = "vemocachectl-" + verb.name;
    std::string what = cli::InShort(verb.help);
    what.front() = static_cast<char>(std::tolower(static_cast<unsigned char>(what.front())));
    std::string text = Head(name, 8, Plain(name), Plain(what)) + Heading("SYNOPSIS");
    for (const auto& [path, one] : called) {
        text += Paragraph(Synopsis(path, *one));
    }
    text += Heading("DESCRIPTION") + Paragraph(Plain(Sentence(verb.help)));
    for (const auto& [path, one] : called) {
        text += called.size() > 1 ? SubHeading(path) + Paragraph(Plain(Sentence(one->help))) : "";
        text += Describe(*one);
    }
    text += Paragraph("The options that all verbs take are told in *vemocachectl*(8).");
    return text + ExitStatus(called) + Examples(called) + Heading("SEE ALSO") +
           Paragraph("*vemocachectl*(8), *vemoflashcache-files*(5)");
}

std::string VerbList(const std::vector<Verb>& verbs) {
    std::string text;
    for (const auto& verb : verbs) {
        text += Meaning(Bold("vemocachectl-" + verb.name) + "(8)", Plain(Sentence(verb.help)));
    }
    return text;
}

std::string GeneralOptions() {
    cli::Context context;
    return Describe(cli::GeneralArguments(context));
}

}  // namespace manual
