#include "manual/header.h"

#include <regex>
#include <stdexcept>

#include "manual/passages.h"

namespace manual {
namespace {

constexpr std::string_view kExport = "VEMOFLASHCACHE_API ";
constexpr std::string_view kSection = "/* ---- ";

// A comment at the beginning of a line, and what stands between it and the next.
struct Block {
    std::string_view comment;
    std::string_view code;
};

std::vector<Block> BlocksOf(std::string_view text) {
    std::vector<Block> blocks;
    std::size_t begin = text.find("/*");
    while (begin != std::string_view::npos) {
        const std::size_t end = text.find("*/", begin) + 2;
        const std::size_t next = text.find("\n/*", end);
        blocks.push_back({text.substr(begin, end - begin),
                          text.substr(end, next == std::string_view::npos ? next : next - end)});
        begin = next == std::string_view::npos ? next : next + 1;
    }
    return blocks;
}

std::string Trimmed(std::string_view text) {
    const auto first = text.find_first_not_of(" \n");
    return first == std::string_view::npos
               ? ""
               : std::string(text.substr(first, text.find_last_not_of(" \n") - first + 1));
}

// Declarations of functions on a line each, however they stood.
std::string OnOneLine(std::string_view code) {
    return std::regex_replace(std::regex_replace(std::string(code), std::regex(R"(\s+)"), " "),
                              std::regex("; "), ";\n");
}

// Longer lines are broken behind a comma.
std::string Broken(const std::string& line) {
    constexpr std::size_t kWidth = 72;
    std::string broken;
    std::string rest = line;
    while (rest.size() > kWidth) {
        const auto comma = rest.rfind(", ", kWidth);
        if (comma == std::string::npos) {
            break;
        }
        broken += rest.substr(0, comma + 1) + "\n";
        rest = "        " + rest.substr(comma + 2);
    }
    return broken + rest;
}

void AddFunctions(Item& item, std::string code) {
    for (auto at = code.find(kExport); at != std::string::npos; at = code.find(kExport)) {
        code.erase(at, kExport.size());
    }
    static const std::regex kFunction(R"([^\n]*?(\w+)\([^\n]*;)");
    const std::string lines = OnOneLine(code);
    for (std::sregex_iterator found(lines.begin(), lines.end(), kFunction), none; found != none; ++found) {
        item.functions.push_back((*found)[1]);
        item.code += (item.code.empty() ? "" : "\n") + Broken((*found)[0]);
    }
}

Item ItemOf(const Block& block) {
    Item item{PassagesOf(block.comment, false), "", {}};
    const std::string code = Trimmed(block.code.substr(0, block.code.find("\n#")));
    if (code.find('{') != std::string::npos) {
        item.code = code;
        return item;
    }
    AddFunctions(item, code);
    return item;
}

// "/* ---- Flush -----" and the lines below it.
Section SectionOf(const Block& block) {
    const std::string_view comment = block.comment;
    const auto end = comment.find('\n');
    const std::string first(comment.substr(kSection.size(), end - kSection.size()));
    Section section{Trimmed(first.substr(0, first.find(" --"))), {}, {}};
    if (end != std::string_view::npos) {
        section.passages = PassagesOf(comment.substr(end + 1), false);
    }
    return section;
}

}  // namespace

PublicHeader ReadHeader(std::string_view text) {
    PublicHeader header;
    for (const Block& block : BlocksOf(text)) {
        if (header.passages.empty()) {
            header.passages = PassagesOf(block.comment, true);
        } else if (block.comment.starts_with(kSection)) {
            header.sections.push_back(SectionOf(block));
        } else if (!header.sections.empty()) {
            header.sections.back().items.push_back(ItemOf(block));
        }
    }
    if (header.sections.empty()) {
        throw std::runtime_error("the header has no sections such as \"/* ---- Flush ----\"");
    }
    return header;
}

}  // namespace manual
