#include "manual/library_page.h"

#include <algorithm>
#include <cctype>
#include <regex>

#include "manual/scdoc.h"

namespace manual {
namespace {

constexpr const char* kInclude = "*#include <vemoflashcache.h>*";

std::string PassageText(const Passage& passage) {
    if (!passage.term.empty()) {
        return Meaning(Bold(passage.term), Plain(passage.text));
    }
    return passage.isListed ? "- " + Plain(passage.text) + "\n\n" : Paragraph(Plain(passage.text));
}

std::string PassagesText(const std::vector<Passage>& passages) {
    std::string text;
    for (const auto& passage : passages) {
        text += PassageText(passage);
    }
    return text;
}

std::vector<std::string> FunctionsOf(const Section& section) {
    std::vector<std::string> functions;
    for (const auto& item : section.items) {
        functions.insert(functions.end(), item.functions.begin(), item.functions.end());
    }
    return functions;
}

std::string Listed(const std::vector<std::string>& words) {
    std::string text;
    for (const auto& word : words) {
        text += (text.empty() ? "" : ", ") + word;
    }
    return text;
}

std::string ItemText(const Item& item) {
    if (item.functions.empty()) {
        return PassagesText(item.passages) + Literal(item.code);
    }
    return SubHeading(Listed(item.functions)) + Literal(item.code) + PassagesText(item.passages);
}

std::string Synopsis(const Section& section) {
    std::string code;
    for (const auto& item : section.items) {
        code += item.functions.empty() ? "" : item.code + "\n";
    }
    return Heading("SYNOPSIS") + Paragraph(kInclude) + (code.empty() ? "" : Literal(code));
}

}  // namespace

std::string PageName(const Section& section) {
    std::string name = section.title;
    std::transform(name.begin(), name.end(), name.begin(), [](unsigned char c) { return std::tolower(c); });
    name = std::regex_replace(name, std::regex("^the |'s\\b"), "");
    return "vemoflashcache-" + std::regex_replace(name, std::regex("[^a-z]+"), "-");
}

std::string SectionPage(const Section& section) {
    const std::string name = PageName(section);
    auto names = FunctionsOf(section);
    names.insert(names.begin(), name);
    std::string text = Head(name, 3, Plain(Listed(names)), Plain("libvemoflashcache: " + section.title));
    text += Synopsis(section) + Heading("DESCRIPTION") + PassagesText(section.passages);
    for (const auto& item : section.items) {
        text += ItemText(item);
    }
    return text + Heading("SEE ALSO") +
           Paragraph(
               "*libvemoflashcache*(3), which tells what holds for all functions, "
               "*vemoflashcache-files*(5)");
}

std::string LibraryPage(const PublicHeader& header, const std::string& example) {
    std::string text =
        Head("libvemoflashcache", 3, "libvemoflashcache", "SSD caches of the storage appliance");
    text += Heading("SYNOPSIS") + Paragraph(kInclude) +
            Paragraph("cc program.c $(pkg-config --cflags --libs vemoflashcache)");
    text += Heading("DESCRIPTION");
    // The first passage is the header's name.
    text += PassagesText({header.passages.begin() + 1, header.passages.end()});
    text += Heading("PAGES");
    for (const auto& section : header.sections) {
        const std::string functions = Listed(FunctionsOf(section));
        text += Meaning(Bold(PageName(section)) + "(3)",
                        Plain(functions.empty() ? section.title : section.title + ": " + functions));
    }
    text += Heading("EXAMPLES") + Literal(example);
    return text + Heading("SEE ALSO") +
           Paragraph("*vemocachectl*(8), *flashcache.conf*(5), *vemoflashcache-files*(5)");
}

}  // namespace manual
