// The text of a section file, taken apart.
//
//   # a comment, as is a line that begins with ";"
//   [name]
//       key = value
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "simulation/platform/text_map.h"

namespace vemo::platform {

struct KeyLine {
    std::string_view key;
    std::string_view value;
};

// The pair of a line such as "\tWriteMode = back\n"; nothing for headers, comments and lines without a pair.
std::optional<KeyLine> ParseKeyLine(std::string_view line);

// Whether the line closes the section before it. One that does so without a name, "[nam" or a name with a
// NUL, begins no section: its keys must not be taken for those of the section before it.
bool IsHeader(std::string_view line);
// The name in a header such as "[md3]\n", nothing when it is broken.
std::optional<std::string_view> ParseHeader(std::string_view line);
// Whether the line is blank or a comment.
bool IsRemark(std::string_view line);

// The sections of a text. Of two with one name, the first counts.
class SectionDocument {
  public:
    explicit SectionDocument(std::string text);
    SectionDocument(const SectionDocument&) = delete;
    SectionDocument& operator=(const SectionDocument&) = delete;

    std::string_view Text() const { return text_; }
    // Names with the lines that follow their headers, in the file's order.
    const std::vector<TextMap::Entry>& Sections() const { return sections_.Entries(); }
    // The lines of a section, nothing when there is none of that name.
    std::optional<std::string_view> Body(std::string_view name) const;

  private:
    std::string text_;
    TextMap sections_;
};

}  // namespace vemo::platform
