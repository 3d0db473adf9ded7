#include "output/text.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <variant>

namespace cli {
namespace {

bool IsUnknown(const Field& field) {
    return std::holds_alternative<std::monostate>(field.value);
}

bool IsNumeric(const Field& field) {
    return field.format == Format::kBytes || field.format == Format::kPercent ||
           field.format == Format::kSeconds || std::holds_alternative<std::int64_t>(field.value) ||
           std::holds_alternative<std::uint64_t>(field.value);
}

std::string BlockOf(const Record& record) {
    std::size_t width = 0;
    for (const auto& field : record.fields) {
        width = std::max(width, field.label.size());
    }
    std::string text;
    for (const auto& field : record.fields) {
        if (field.hiddenIfUnknown && IsUnknown(field)) {
            continue;
        }
        text += field.opensGroup ? "\n" : "";
        text += fmt::format("  {:<{}}  {}\n", field.label, width, ToText(field));
    }
    return text;
}

// One column of a table: the same field of each record.
struct Column {
    std::string heading;
    std::vector<std::string> cells;
    bool rightAligned = false;
};

Column ColumnOf(const std::vector<Record>& records, std::size_t index) {
    Column column;
    column.heading = records.front().fields[index].label;
    std::transform(column.heading.begin(), column.heading.end(), column.heading.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    for (const auto& record : records) {
        const Field& field = record.fields.at(index);
        column.cells.push_back(ToCell(field));
        column.rightAligned = column.rightAligned || IsNumeric(field);
    }
    return column;
}

std::vector<Column> ColumnsOf(const std::vector<Record>& records) {
    std::vector<Column> columns;
    for (std::size_t index = 0; index < records.front().fields.size(); ++index) {
        const bool hidden = std::all_of(records.begin(), records.end(), [&](const Record& record) {
            return record.fields.at(index).hiddenIfUnknown && IsUnknown(record.fields.at(index));
        });
        if (!hidden) {
            columns.push_back(ColumnOf(records, index));
        }
    }
    return columns;
}

// Pads to the width of the column; the cell itself may hold UTF-8, whose width fmt knows.
std::string Pad(const Column& column, const std::string& cell) {
    std::size_t width = column.heading.size();
    for (const auto& other : column.cells) {
        width = std::max(width, other.size());
    }
    return column.rightAligned ? fmt::format("{:>{}}", cell, width) : fmt::format("{:<{}}", cell, width);
}

void AppendRow(std::string& text, std::string row) {
    row.erase(row.find_last_not_of(' ') + 1);
    text += row + "\n";
}

std::string TableOf(const std::vector<Record>& records) {
    const std::vector<Column> columns = ColumnsOf(records);
    std::string text;
    std::string headings;
    for (const auto& column : columns) {
        headings += Pad(column, column.heading) + "  ";
    }
    AppendRow(text, headings);
    for (std::size_t row = 0; row < records.size(); ++row) {
        std::string line;
        for (const auto& column : columns) {
            line += Pad(column, column.cells[row]) + "  ";
        }
        AppendRow(text, line);
    }
    return text;
}

std::string RecordsOf(const Answer& answer) {
    if (answer.records.empty()) {
        return answer.whenNone.empty() ? "" : answer.whenNone + "\n";
    }
    if (answer.layout == Layout::kTable) {
        return TableOf(answer.records);
    }
    std::string text;
    for (std::size_t i = 0; i < answer.records.size(); ++i) {
        text += (i == 0 ? "" : "\n") + BlockOf(answer.records[i]);
    }
    return text;
}

}  // namespace

std::string TextOf(const Answer& answer) {
    std::string text = answer.headline.empty() ? "" : Printable(answer.headline) + "\n";
    text += RecordsOf(answer);
    return answer.total ? text + "\n" + BlockOf(*answer.total) : text;
}

std::string TextOf(const Failure& failure) {
    std::string text = "vemocachectl: " + Printable(failure.what) + "\n";
    if (!failure.why.empty()) {
        text += "  why:  " + Printable(failure.why) + "\n";
    }
    if (failure.slot && failure.slot->code != 0) {
        text += fmt::format("  code: 0x{:04X}, {} (recorded at {}:{})\n", failure.slot->code,
                            Meaning(failure.slot->code), Printable(failure.slot->file), failure.slot->line);
    }
    if (!failure.next.empty()) {
        text += "  next: " + Printable(failure.next) + "\n";
    }
    return text;
}

}  // namespace cli
