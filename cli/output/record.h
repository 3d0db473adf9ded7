// What the tool says about a thing, once: table, text and JSON are formed from the same fields.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace cli {

using Texts = std::vector<std::string>;
using TextLists = std::vector<Texts>;

// A fact; nothing (std::monostate) is "not known": "-" in text, null in JSON.
using Value =
    std::variant<std::monostate, bool, std::int64_t, std::uint64_t, double, std::string, Texts, TextLists>;

// How text shows a number; JSON always holds the bare number in the unit that the field's key names.
// A device's path loses its folder in tables alone; a sentence stands below a table that it makes too wide.
// A kNumber is a plain one, known or not. Parts are fields in the place of a value; in JSON they are an
// object.
enum class Format { kPlain, kNumber, kBytes, kPercent, kSeconds, kDevice, kBar, kSentence, kParts };

struct Field {
    std::string key;    // in JSON; never renamed, since scripts read it
    std::string label;  // in text and, in capitals, as a table's heading
    Value value;
    Format format = Format::kPlain;
    bool opensGroup = false;       // text sets it apart from the fields before it
    bool hiddenIfUnknown = false;  // text leaves it out when it is not known (in a table: in no row)
    int rank = 0;                  // a table that is too wide leaves the highest out first; 0 stays
    // NOLINTNEXTLINE(readability-redundant-member-init): g++ warns of a member left out, unless it has one.
    std::vector<Field> parts = {};
};

// Everything told about one cache, entry, knob, ...
struct Record {
    std::vector<Field> fields;
    // What text says in the place of the fields, unless some were chosen.
    // NOLINTNEXTLINE(readability-redundant-member-init): g++ warns of a member left out, unless it has one.
    std::optional<std::string> prose = {};
};

// The columns of these keys may be left out of a table that is too wide, the first one first.
void MayGiveWay(Record& record, std::initializer_list<std::string_view> keys);

bool IsUnknown(const Field& field);

// The text of a field's value, fit for a terminal: no control characters get through. Sizes are for people,
// or exact numbers of bytes.
std::string ToText(const Field& field, bool exactBytes = false);

// The same for a cell of a table, where room is scarce.
std::string ToCell(const Field& field, bool exactBytes = false);

// A text as a value: an empty one is not known.
Value KnownText(std::string_view text);
Value KnownText(const char* text);  // which may be NULL, too

// Yes or no as a value.
Value KnownFlag(std::optional<bool> flag);

// The bytes of so many blocks; not known where either number is not, which 0 as a block's size says.
Value BytesOf(std::optional<std::uint64_t> blocks, std::uint64_t blockSize);

// A part in percent of a whole, rounded down to tenths, but for what is there at all; not known of no whole.
Value PercentValue(std::uint64_t part, std::uint64_t whole);

// A size for people, such as "1.5 GiB"; exact numbers up to 1023 bytes.
std::string HumanSize(std::uint64_t bytes);

// `text` without control characters.
std::string Printable(std::string_view text);

}  // namespace cli
