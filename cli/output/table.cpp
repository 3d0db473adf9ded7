#include "output/table.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <numeric>
#include <variant>

namespace cli {
namespace {

// One column: the same field of each record.
struct Column {
    std::string heading;
    std::vector<std::string> cells;
    std::size_t width = 0;
    bool rightAligned = false;
    bool isSentence = false;
    int rank = 0;
};

constexpr std::size_t kGap = 2;  // between columns

bool IsNumeric(const Field& field) {
    return field.format == Format::kBytes || field.format == Format::kPercent ||
           field.format == Format::kSeconds || field.format == Format::kNumber ||
           std::holds_alternative<std::int64_t>(field.value) ||
           std::holds_alternative<std::uint64_t>(field.value) || std::holds_alternative<double>(field.value);
}

// In columns of a terminal, where a character of UTF-8 takes one however many bytes it has.
std::size_t WidthOf(const std::string& text) {
    return static_cast<std::size_t>(
        std::count_if(text.begin(), text.end(), [](unsigned char c) { return (c & 0xC0) != 0x80; }));
}

Column ColumnOf(const std::vector<Record>& records, std::size_t index, const Form& form) {
    Column column;
    const Field& first = records.front().fields[index];
    if (!form.noHeadings) {
        column.heading = first.label;
        std::transform(column.heading.begin(), column.heading.end(), column.heading.begin(),
                       [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    }
    column.width = WidthOf(column.heading);
    column.isSentence = first.format == Format::kSentence;
    column.rank = first.rank;
    for (const auto& record : records) {
        const Field& field = record.fields.at(index);
        column.cells.push_back(ToCell(field, form.bytes));
        column.width = std::max(column.width, WidthOf(column.cells.back()));
        column.rightAligned = column.rightAligned || IsNumeric(field);
    }
    return column;
}

std::vector<Column> ColumnsOf(const std::vector<Record>& records, const Form& form) {
    std::vector<Column> columns;
    for (std::size_t index = 0; index < records.front().fields.size(); ++index) {
        const bool hidden = std::all_of(records.begin(), records.end(), [&](const Record& record) {
            return record.fields.at(index).hiddenIfUnknown && IsUnknown(record.fields.at(index));
        });
        if (!hidden) {
            columns.push_back(ColumnOf(records, index, form));
        }
    }
    return columns;
}

std::size_t WidthOf(const std::vector<Column>& columns) {
    return std::accumulate(columns.begin(), columns.end(), kGap * (columns.size() - 1),
                           [](std::size_t width, const Column& column) { return width + column.width; });
}

// Takes the sentences out of a table and makes them lines such as "md3+volume_1: its SSD is missing".
std::string TakeSentences(std::vector<Column>& columns, const std::vector<Record>& records) {
    std::string lines;
    for (std::size_t row = 0; row < records.size(); ++row) {
        for (const auto& field : records[row].fields) {
            if (field.format == Format::kSentence && !IsUnknown(field)) {
                lines += fmt::format("{}: {}\n", columns.front().cells[row], ToText(field));
            }
        }
    }
    std::erase_if(columns, [](const Column& column) { return column.isSentence; });
    return lines.empty() ? "" : "\n" + lines;
}

// Leaves out columns, the least important one first, until the rest fits.
void GiveWay(std::vector<Column>& columns, std::size_t room) {
    while (columns.size() > 1 && WidthOf(columns) > room) {
        const auto least = std::max_element(columns.begin(), columns.end(),
                                            [](const auto& a, const auto& b) { return a.rank < b.rank; });
        if (least->rank == 0) {
            return;
        }
        columns.erase(least);
    }
}

std::string Pad(const Column& column, const std::string& cell) {
    const std::string blanks(column.width - WidthOf(cell), ' ');
    return column.rightAligned ? blanks + cell : cell + blanks;
}

template <typename CellOf>
std::string Row(const std::vector<Column>& columns, CellOf cellOf) {
    std::string row;
    for (const auto& column : columns) {
        row += Pad(column, cellOf(column)) + std::string(kGap, ' ');
    }
    row.erase(row.find_last_not_of(' ') + 1);
    return row + "\n";
}

}  // namespace

std::string TableOf(const std::vector<Record>& records, const Form& form) {
    std::vector<Column> columns = ColumnsOf(records, form);
    std::string sentences;
    if (!form.wide && form.columns != 0 && WidthOf(columns) > form.columns) {
        if (!columns.front().isSentence) {
            sentences = TakeSentences(columns, records);
        }
        // Columns that were asked for by name stay.
        if (form.fields.empty()) {
            GiveWay(columns, form.columns);
        }
    }
    std::string text =
        form.noHeadings ? "" : Row(columns, [](const Column& column) { return column.heading; });
    for (std::size_t row = 0; row < records.size(); ++row) {
        text += Row(columns, [&](const Column& column) { return column.cells[row]; });
    }
    return text + sentences;
}

}  // namespace cli
