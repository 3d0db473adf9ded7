#include <algorithm>

#include "simulation/platform/errors.h"
#include "simulation/platform/section_cache.h"
#include "simulation/platform/sz_hash.h"
#include "simulation/platform/sz_list.h"
#include "simulation/platform/text.h"
#include "simulation/platform/whole_file.h"

using namespace vemo::platform;

namespace {

// `format` with its two "%s" filled in; nothing when it asks for anything else.
std::optional<std::string> LayOut(std::string_view format, std::string_view key, std::string_view value) {
    std::string line;
    int filled = 0;
    for (size_t i = 0; i < format.size(); ++i) {
        if (format[i] != '%') {
            line += format[i];
            continue;
        }
        if (++i == format.size()) return {};
        if (format[i] == '%') {
            line += '%';
        } else if (format[i] == 's' && filled < 2) {
            line += filled++ == 0 ? key : value;
        } else {
            return {};
        }
    }
    if (filled != 2) return {};
    return line;
}

// Whether the text is one line and nothing but a line.
bool IsOneLine(std::string_view text) {
    constexpr std::string_view kEnds("\r\n\0", 3);
    return !text.empty() && text.back() == '\n' && text.find_first_of(kEnds) == text.size() - 1;
}

// The line to write for a pair; nothing when it would not read back as that pair.
std::optional<std::string> KeyLineText(const TextMap::Entry& pair, const char* format) {
    auto line = LayOut(format == nullptr ? "%s=%s\n" : format, pair.key, pair.value);
    if (!line || !IsOneLine(*line)) return {};
    const auto readBack = ParseKeyLine(*line);
    if (!readBack || readBack->key != pair.key || readBack->value != pair.value) return {};
    return line;
}

// The header line of a section; nothing when it would not read back as that name.
std::optional<std::string> HeaderText(std::string_view name) {
    auto line = "[" + std::string(name) + "]\n";
    if (!IsOneLine(line) || ParseHeader(line) != name) return {};
    return line;
}

// All lines to write, one for each entry of the hash.
std::optional<std::vector<std::string>> KeyLines(const VLIBC_SZHASH& hash, const char* format) {
    std::vector<std::string> lines;
    for (const TextMap::Entry& pair : hash.map.Entries()) {
        auto line = KeyLineText(pair, format);
        if (!line) return {};
        lines.push_back(std::move(*line));
    }
    return lines;
}

// A section's lines with `lines` in the place of those with their keys; new keys follow the last old one.
std::string EditBody(std::string_view body, const VLIBC_SZHASH& hash, const std::vector<std::string>& lines) {
    std::vector<bool> written(lines.size());
    std::string edited;
    size_t lastKeyEnd = 0;
    std::string_view line;
    while (NextLine(body, line)) {
        const auto pair = ParseKeyLine(line);
        const TextMap::Entry* const found = pair ? hash.map.Find(pair->key) : nullptr;
        const size_t at = found == nullptr ? lines.size() : hash.map.IndexOf(*found);
        const bool replace = at < lines.size() && !written[at];
        edited += replace ? std::string_view(lines[at]) : line;
        if (replace) written[at] = true;
        if (pair) lastKeyEnd = edited.size();
    }
    std::string added;
    for (size_t i = 0; i < lines.size(); ++i) {
        if (!written[i]) added += lines[i];
    }
    return edited.insert(lastKeyEnd, added);
}

// The text without the sections of that name. Remarks between the last key and the next header belong to what
// follows, and stay.
std::string WithoutSection(std::string_view text, std::string_view name) {
    std::string kept;
    std::string remarks;
    bool dropping = false;
    std::string_view line;
    while (NextLine(text, line)) {
        if (IsHeader(line)) {
            kept += remarks;
            remarks.clear();
            dropping = ParseHeader(line) == name;
            if (dropping) continue;
        }
        if (!dropping) {
            kept += line;
        } else if (IsRemark(line)) {
            remarks += line;
        } else {
            remarks.clear();
        }
    }
    return kept + remarks;
}

// Sets the pairs of `hash` in the document's section, or appends the section with them.
std::string WithKeys(const SectionDocument& document, std::string_view header, std::string_view name,
                     const VLIBC_SZHASH& hash, const std::vector<std::string>& lines) {
    std::string text(document.Text());
    if (const auto body = document.Body(name)) {
        const auto begin = static_cast<size_t>(body->data() - document.Text().data());
        text.replace(begin, body->size(), EditBody(*body, hash, lines));
    } else {
        text += header;
        for (const std::string& line : lines) text += line;
    }
    return text;
}

// Writes the pairs into the section. Number of keys, -1 on failure.
int WriteSection(const char* file, const char* section, const VLIBC_SZHASH* hash, const char* format,
                 bool mayCreate) {
    if (file == nullptr || section == nullptr || hash == nullptr) return Fail(VLIBC_ERR_BAD_PARAMETER);
    const auto header = HeaderText(section);
    const auto lines = KeyLines(*hash, format);
    if (!header || !lines) {
        errno = EINVAL;
        return Fail(VLIBC_ERR_BAD_PARAMETER);
    }
    auto text = mayCreate ? ReadFileToEdit(file) : ReadWholeFile(file);
    if (!text) return -1;
    const bool ended = text->empty() || text->back() == '\n';
    if (!ended) *text += '\n';  // what is added begins a line of its own
    const SectionDocument document(std::move(*text));
    const auto body = document.Body(section);
    if (!mayCreate && !body) return Fail(VLIBC_ERR_SECTION_NOT_FOUND);
    std::string changed = WithKeys(document, *header, section, *hash, *lines);
    const bool changesTheEnd =
        !body || body->data() + body->size() == document.Text().data() + document.Text().size();
    if (!ended && !changesTheEnd) changed.pop_back();  // another section's last line stays without its end
    if (ReplaceFile(file, changed) != 0) return -1;
    return static_cast<int>(lines->size());
}

// Puts the pairs of a section's lines into the hash, whose own give way; of two equal keys on the lines the
// first counts. Number of keys.
int ReadKeys(std::string_view body, VLIBC_SZHASH& hash) {
    // Kept in one piece, in which the values are then closed: the byte after a value is a blank, or the end.
    std::string_view rest = hash.texts.Keep(body);
    std::string_view line;
    while (NextLine(rest, line)) {
        const auto pair = ParseKeyLine(line);
        if (!pair || !hash.map.Insert(pair->key, pair->value)) continue;
        const_cast<char&>(pair->value.data()[pair->value.size()]) = '\0';
    }
    return static_cast<int>(hash.map.Entries().size());
}

}  // namespace

int VLIBCFileEnumSection(const char* file, VLIBC_SZLIST** list) {
    if (file == nullptr || list == nullptr) return Fail(VLIBC_ERR_BAD_PARAMETER);
    return Guard(-1, [&] {
        const SectionDocument* const document = LoadSections(file);
        if (document == nullptr) return -1;
        if (*list == nullptr) *list = new VLIBC_SZLIST;
        for (const TextMap::Entry& section : document->Sections()) (*list)->Add(section.key);
        return static_cast<int>(document->Sections().size());
    });
}

int VLIBCFileGetSection(const char* file, const char* section, VLIBC_SZHASH** hash) {
    if (file == nullptr || section == nullptr || hash == nullptr) return Fail(VLIBC_ERR_BAD_PARAMETER);
    return Guard(-1, [&] {
        const SectionDocument* const document = LoadSections(file);
        if (document == nullptr) return -1;
        const auto body = document->Body(section);
        if (!body) return Fail(VLIBC_ERR_SECTION_NOT_FOUND) + 1;
        if (*hash == nullptr) *hash = new VLIBC_SZHASH;
        if ((*hash)->map.Entries().empty()) return ReadKeys(*body, **hash);
        VLIBC_SZHASH read;
        const int count = ReadKeys(*body, read);
        for (const TextMap::Entry& pair : read.map.Entries()) (*hash)->Set(pair.key, pair.value);
        return count;
    });
}

int VLIBCFileSetSection(const char* file, const char* section, const char* newName, const VLIBC_SZHASH* hash,
                        const char* format) {
    if (newName != nullptr) return Fail(VLIBC_ERR_BAD_PARAMETER);
    return Guard(-1, [&] { return WriteSection(file, section, hash, format, false); });
}

int VLIBCFileAddSection(const char* file, const char* section, const VLIBC_SZHASH* hash, const char* format) {
    return Guard(-1, [&] {
        const int written = WriteSection(file, section, hash, format, true);
        return written == 0 ? 1 : written;  // a section without keys was added all the same
    });
}

int VLIBCFileRemoveSection(const char* file, const char* section) {
    if (file == nullptr || section == nullptr) return Fail(VLIBC_ERR_BAD_PARAMETER);
    return Guard(-1, [&] {
        const auto text = ReadWholeFile(file);
        if (!text) return -1;
        const std::string kept = WithoutSection(*text, section);
        if (kept.size() == text->size()) return Fail(VLIBC_ERR_SECTION_NOT_FOUND) + 1;
        return ReplaceFile(file, kept) == 0 ? 1 : -1;
    });
}
