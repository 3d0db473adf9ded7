#include "stats/frame.h"

#include <fmt/format.h>

#include <algorithm>
#include <sstream>

#include "output/shape.h"
#include "output/table.h"

namespace cli {
namespace {

constexpr const char* kKeys = "q quit  n name  r reads  w writes  h hits  d dirty  b back (again: turned)";

constexpr const char* kReverse = "7";
constexpr const char* kRed = "31";
constexpr const char* kYellow = "33";

struct Order {
    char key;
    const char* sort;
};
constexpr Order kOrders[] = {{'n', "name"},
                             {'r', "-reads_per_second"},
                             {'w', "-writes_per_second"},
                             {'h', "-interval_read_hit_percent"},
                             {'d', "-dirty_bytes"},
                             {'b', "-write_back_bytes_per_second"}};

std::string WithoutSign(const std::string& sort) {
    return sort.substr(sort.starts_with('-') ? 1 : 0);
}

std::string Turned(const std::string& sort) {
    return sort.starts_with('-') ? sort.substr(1) : "-" + sort;
}

// The colour of a cache's row; empty: none.
std::string ColourOf(const Record& record) {
    std::string colour;
    for (const auto& field : record.fields) {
        const auto* text = std::get_if<std::string>(&field.value);
        if (field.key == "state" && text != nullptr && *text != "running") {
            return kRed;
        }
        colour = field.key == "event" && text != nullptr ? kYellow : colour;
    }
    return colour;
}

class Painter {
  public:
    Painter(bool hasColour, std::size_t columns) : hasColour_(hasColour), columns_(columns) {}

    [[nodiscard]] std::string Line(const std::string& text, const std::string& colour = "") const {
        const std::string line = CutToWidth(text, columns_);
        return hasColour_ && !colour.empty() ? fmt::format("\x1b[{}m{}\x1b[m", colour, line) : line;
    }

  private:
    bool hasColour_;
    std::size_t columns_;
};

std::vector<std::string> TableLines(const Answer& table, const Form& form, const Painter& painter) {
    if (table.records.empty()) {
        return {painter.Line(table.whenNone)};
    }
    std::istringstream text(TableOf(table.records, form));
    std::vector<std::string> lines;
    const std::size_t headings = form.noHeadings ? 0 : 1;
    for (std::string line; std::getline(text, line);) {
        const std::size_t row = lines.size();
        lines.push_back(painter.Line(
            line, row < headings
                      ? kReverse
                      : ColourOf(table.records[std::min(row - headings, table.records.size() - 1)])));
    }
    return lines;
}

}  // namespace

std::vector<std::string> LinesOf(const Frame& frame, TerminalSize size) {
    Form form = frame.form;
    form.columns = size.columns;
    const Answer shaped = Shaped(frame.table, form);
    const Painter painter(frame.hasColour, size.columns);
    std::vector<std::string> lines = TableLines(shaped, form, painter);
    const bool hasFrame = size.rows >= 4;
    const std::size_t room = hasFrame ? size.rows - 2 : std::max<std::size_t>(size.rows, 1);
    const std::size_t all = shaped.records.size();
    const std::size_t hidden = lines.size() > room ? lines.size() - room : 0;
    if (room == 1 && lines.size() > 1) {
        lines.erase(lines.begin());  // a cache tells more than the heading
    }
    lines.resize(std::min(lines.size(), room));
    if (!hasFrame) {
        return lines;
    }
    const std::string shown =
        hidden > 0 ? fmt::format("{} of {}", all - hidden, all) : fmt::format("{}", all);
    lines.insert(lines.begin(),
                 painter.Line(fmt::format("{} cache{}, {}", shown, all == 1 ? "" : "s", frame.title)));
    if (!frame.event.empty() && lines.size() + 1 < size.rows) {
        lines.push_back(painter.Line(frame.event, kYellow));
    }
    lines.resize(size.rows - 1);
    lines.push_back(painter.Line(kKeys));
    return lines;
}

std::string SortAfter(char key, const std::string& sort) {
    for (const auto& order : kOrders) {
        if (key == order.key) {
            return WithoutSign(sort) == WithoutSign(order.sort) ? Turned(sort) : order.sort;
        }
    }
    return sort;
}

}  // namespace cli
