#include "simulation/platform/section_document.h"

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
    line = Trim(line);
    if (line.empty() || line.front() == '#' || line.front() == ';' || line.front() == '[') return {};
    const size_t equals = line.find('=');
    if (equals == line.npos) return {};
    const std::string_view key = Trim(line.substr(0, equals));
    if (key.empty()) return {};
    return KeyLine{key, Trim(line.substr(equals + 1))};
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
    std::string_view rest = text_;
    std::string_view line;
    std::optional<std::string_view> name;
    const char* bodyBegin = nullptr;
    const auto closeSection = [&](const char* bodyEnd) {
        if (name) sections_.Insert(*name, {bodyBegin, static_cast<size_t>(bodyEnd - bodyBegin)});
    };
    while (NextLine(rest, line)) {
        if (!IsHeader(line)) continue;
        closeSection(line.data());
        name = ParseHeader(line);
        bodyBegin = line.data() + line.size();
    }
    closeSection(text_.data() + text_.size());
}

std::optional<std::string_view> SectionDocument::Body(std::string_view name) const {
    const TextMap::Entry* const section = sections_.Find(name);
    if (section == nullptr) return {};
    return section->value;
}

}  // namespace vemo::platform
