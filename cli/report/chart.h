// Pictures of numbers over time, as SVG that stands in a page.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace cli {

struct ChartPoint {
    double seconds = 0;
    std::optional<double> value;  // nothing: not known, the line has a gap
};

struct ChartLine {
    std::string label;
    std::vector<ChartPoint> points;
};

struct Chart {
    std::string title;
    std::string unit;                  // of the values; "B" and "B/s" are shown as KiB and more
    std::vector<ChartLine> lines;      // three at the most
    std::optional<double> least = {};  // the end of the axis, at the least
};

// With axes, their units and a legend; what cannot be drawn for want of numbers says so.
std::string SvgOf(const Chart& chart);

// `text` as it stands in HTML and SVG.
std::string Escaped(const std::string& text);

}  // namespace cli
