#include "simulation/platform/section_document.h"

#include <algorithm>

#include "simulation/platform/text.h"

namespace vemo::platform {

namespace {

char FirstLetter(std::string_view line) {
    for (const char c : line) {
        if (!IsBlank(c)) return c;
    }
    return '\0';
}

}  // namespace

std::optional<KeyLine> ParseKeyLine(std::string_view line) {
    line = TrimFront(line);
    const size_t equals = line.find('=');
    if (equals == line.npos || equals == 0) return {};
    if (line.front() == '#' || line.front() == ';' || line.front() == '[') return {};
    return KeyLine{TrimBack(line.substr(0, equals)), Trim(line.substr(equals + 1))};
}

bool IsHeader(std::string_view line) {
    return FirstLetter(line) == '[';
}

std::optional<std::string_view> ParseHeader(std::string_view line) {
    if (!IsHeader(line)) return {};
    line.remove_prefix(line.find('[') + 1);
    const size_t end = line.find(']');
    const std::string_view name = line.substr(0, end);
    if (end == line.npos || name.find('\0') != name.npos) return {};
    return name;
}

bool IsRemark(std::string_view line) {
    line = Trim(line);
    return line.empty() || line.front() == '#' || line.front() == ';';
}

SectionDocument::SectionDocument(std::string text) : text_(std::move(text)) {
    const std::string_view all = text_;
    std::optional<std::string_view> name;
    size_t bodyBegin = 0;
    const auto closeSection = [&](size_t bodyEnd) {
        if (name) sections_.Insert(*name, all.substr(bodyBegin, bodyEnd - bodyBegin));
    };
    // From bracket to bracket, since few lines have one.
    size_t lineEnd = 0;
    for (size_t at = 0; (at = all.find('[', lineEnd)) != all.npos;) {
        const size_t lineBegin = all.rfind('\n', at) + 1;  // 0 on the first line
        lineEnd = std::min(all.find('\n', at), all.size() - 1) + 1;
        const std::string_view line = all.substr(lineBegin, lineEnd - lineBegin);
        if (!IsHeader(line)) continue;
        closeSection(lineBegin);
        name = ParseHeader(line);
        bodyBegin = lineEnd;
    }
    closeSection(all.size());
}

std::optional<std::string_view> SectionDocument::Body(std::string_view name) const {
    const TextMap::Entry* const section = sections_.Find(name);
    if (section == nullptr) return {};
    return section->value;
}

}  // namespace vemo::platform
