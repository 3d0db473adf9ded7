#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "advise/curve.h"
#include "output/record.h"

namespace cli {
namespace {

constexpr std::size_t kRows = 10;
constexpr std::size_t kGutter = 6;  // for "100% |"
constexpr std::size_t kMostColumns = 72;

// Dots in cells of two by four, as Braille characters have them.
class Canvas {
  public:
    Canvas(std::size_t columns, std::size_t rows) : columns_(columns), rows_(rows), cells_(columns * rows) {}

    [[nodiscard]] std::size_t Width() const { return columns_ * 2; }
    [[nodiscard]] std::size_t Height() const { return rows_ * 4; }

    // From the left and from the bottom.
    void Set(std::size_t x, std::size_t y) {
        constexpr unsigned kBits[4][2] = {{0x01, 0x08}, {0x02, 0x10}, {0x04, 0x20}, {0x40, 0x80}};
        const std::size_t fromTop = Height() - 1 - y;
        cells_[fromTop / 4 * columns_ + x / 2] |= kBits[fromTop % 4][x % 2];
    }
    [[nodiscard]] std::string Row(std::size_t row, bool hasBraille) const {
        std::string text;
        for (std::size_t column = 0; column < columns_; ++column) {
            const unsigned cell = cells_[row * columns_ + column];
            if (!hasBraille || cell == 0) {
                text += cell == 0 ? ' ' : '*';
                continue;
            }
            // U+2800 and the dots, in UTF-8.
            text += '\xe2';
            text += static_cast<char>(0xa0U | (cell >> 6U));
            text += static_cast<char>(0x80U | (cell & 0x3fU));
        }
        return text;
    }

  private:
    std::size_t columns_;
    std::size_t rows_;
    std::vector<unsigned> cells_;
};

// The share at a place of the axis, between the two points around it.
double HitsAt(const CurvePicture& picture, double place) {
    const auto& points = picture.lines.front().points;
    for (std::size_t i = 1; i < points.size(); ++i) {
        const double from = PlaceOf(picture, points[i - 1].bytes);
        const double to = PlaceOf(picture, points[i].bytes);
        if (place <= to) {
            const double part = to > from ? (place - from) / (to - from) : 1;
            return points[i - 1].hits + part * (points[i].hits - points[i - 1].hits);
        }
    }
    return points.back().hits;
}

// Each column of dots reaches to the one before it, so that a step is a line.
void Draw(Canvas& canvas, const CurvePicture& picture) {
    std::size_t before = 0;
    for (std::size_t x = 0; x < canvas.Width(); ++x) {
        const double place = static_cast<double>(x) / static_cast<double>(canvas.Width() - 1);
        const auto y = static_cast<std::size_t>(std::lround(std::clamp(HitsAt(picture, place), 0.0, 1.0) *
                                                            static_cast<double>(canvas.Height() - 1)));
        const std::size_t from = x == 0 ? y : before;
        for (std::size_t dot = std::min(from, y); dot <= std::max(from, y); ++dot) {
            canvas.Set(x, dot);
        }
        before = y;
    }
}

// A text around a column, as far as the line has room.
void Place(std::string& line, std::size_t column, const std::string& text) {
    const std::size_t half = text.size() / 2;
    const std::size_t most = line.size() > text.size() ? line.size() - text.size() : 0;
    const std::size_t start = std::min(column > half ? column - half : 0, most);
    line.replace(start, std::min(text.size(), line.size() - start), text, 0, line.size() - start);
}

std::string MarkLines(const CurvePicture& picture, std::size_t columns) {
    std::string text;
    for (const CurveMark& mark : picture.marks) {
        std::string line(columns, ' ');
        const auto column = static_cast<std::size_t>(std::lround(
            PlaceOf(picture, static_cast<double>(mark.bytes)) * static_cast<double>(columns - 1)));
        Place(line, column, fmt::format("^ {} {}", mark.label, HumanSize(mark.bytes)));
        text += std::string(kGutter, ' ') + line.substr(0, line.find_last_not_of(' ') + 1) + "\n";
    }
    return text;
}

std::string SizeLine(const CurvePicture& picture, std::size_t columns) {
    const auto& points = picture.lines.front().points;
    std::string line(columns, ' ');
    const std::string last = HumanSize(static_cast<std::uint64_t>(points.back().bytes));
    Place(line, 0, HumanSize(static_cast<std::uint64_t>(points.front().bytes)));
    Place(line, columns, last);
    return std::string(kGutter, ' ') + line + "\n";
}

}  // namespace

double PlaceOf(const CurvePicture& picture, double bytes) {
    const auto& points = picture.lines.front().points;
    const double from = std::log2(std::max(points.front().bytes, 1.0));
    const double to = std::log2(std::max(points.back().bytes, 1.0));
    return to > from ? std::clamp((std::log2(std::max(bytes, 1.0)) - from) / (to - from), 0.0, 1.0) : 1;
}

std::string PlotOf(const CurvePicture& picture, std::size_t columns, bool hasBraille) {
    columns = std::min(columns, kMostColumns);
    if (picture.lines.empty() || picture.lines.front().points.empty() || columns < kGutter + 20) {
        return "";
    }
    Canvas canvas(columns - kGutter, kRows);
    Draw(canvas, picture);
    std::string text = picture.title + "\n";
    for (std::size_t row = 0; row < kRows; ++row) {
        const std::string label = row == 0           ? "100%"
                                  : row == kRows / 2 ? " 50%"
                                  : row == kRows - 1 ? "  0%"
                                                     : "";
        text += fmt::format("{:>4} |{}\n", label, canvas.Row(row, hasBraille));
    }
    return text + SizeLine(picture, columns - kGutter) + MarkLines(picture, columns - kGutter);
}

}  // namespace cli
