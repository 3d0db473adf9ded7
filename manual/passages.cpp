#include "manual/passages.h"

#include <optional>
#include <regex>
#include <sstream>
#include <string>

namespace manual {
namespace {

struct Line {
    std::size_t indent = 0;
    std::string text;
};

// Without the marks of the comment; the indent is that behind " * ".
Line LineOf(const std::string& raw, bool isFirst) {
    static const std::regex kMarks(R"(^(/\*\*?| \*/| \*|)( ?)( *)(.*?)( *\*/)?\s*$)");
    std::smatch parts;
    std::regex_match(raw, parts, kMarks);
    return {isFirst ? 0 : parts[3].str().size(), parts[4]};
}

// A passage that begins with a term: "Results.    An operation" or "criteria: NULL for all".
std::optional<Passage> WithTerm(const std::string& text, bool hasTerms) {
    static const std::regex kConvention(R"(^([A-Z][a-z]+(?: [a-z]+)?)\.(\s+)(\S.*)$)");
    static const std::regex kParameter(R"(^([a-z]\w*(?:, [a-z]\w*)*): +(\S.*)$)");
    constexpr std::ptrdiff_t kColumn = 11;  // from which on the header sets what a convention says
    std::smatch parts;
    if (hasTerms && std::regex_match(text, parts, kConvention) && parts.position(3) >= kColumn) {
        return Passage{parts[1], parts[3]};
    }
    if (!hasTerms && std::regex_match(text, parts, kParameter)) {
        return Passage{parts[1], parts[2]};
    }
    return std::nullopt;
}

class Builder {
  public:
    explicit Builder(bool hasTerms) : hasTerms_(hasTerms) {}

    void Add(const Line& line) {
        if (line.text.empty()) {
            isOpen_ = false;
        } else if (line.text.starts_with("- ")) {
            Begin({"", line.text.substr(2), true}, line.indent);
        } else if (auto termed = MayHaveTerm(line) ? WithTerm(line.text, hasTerms_) : std::nullopt) {
            Begin(std::move(*termed), 0);
        } else if (!isOpen_ || EndsBefore(line)) {
            Begin({"", line.text}, line.indent);
        } else {
            hangs_ = hangs_ || line.indent > indent_;
            passages_.back().text += " " + line.text;
        }
    }

    std::vector<Passage> Take() { return std::move(passages_); }

  private:
    void Begin(Passage passage, std::size_t indent) {
        passages_.push_back(std::move(passage));
        indent_ = indent;
        isOpen_ = true;
        hangs_ = false;
    }

    // In the midst of a sentence a colon belongs to that.
    bool MayHaveTerm(const Line& line) const {
        return line.indent == 0 && (!isOpen_ || passages_.back().text.ends_with('.'));
    }

    // What follows a passage whose lines were indented, and what tells results or out values anew.
    bool EndsBefore(const Line& line) const {
        static const std::regex kAnew(R"(^(Returns? |\*[a-z]).*)");
        return (hangs_ && line.indent <= indent_) ||
               (passages_.back().text.ends_with('.') && std::regex_match(line.text, kAnew));
    }

    bool hasTerms_;
    std::vector<Passage> passages_;
    std::size_t indent_ = 0;
    bool isOpen_ = false;
    bool hangs_ = false;
};

}  // namespace

std::vector<Passage> PassagesOf(std::string_view comment, bool hasTerms) {
    Builder builder(hasTerms);
    std::istringstream lines{std::string(comment)};
    bool isFirst = true;
    for (std::string line; std::getline(lines, line); isFirst = false) {
        builder.Add(LineOf(line, isFirst));
    }
    return builder.Take();
}

}  // namespace manual
