#include "report/chart.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "output/record.h"

namespace cli {
namespace {

constexpr double kWidth = 560;
constexpr double kHeight = 220;
constexpr double kLeft = 78;
constexpr double kRight = 14;
constexpr double kTop = 14;
constexpr double kBottom = 44;
constexpr int kSteps = 4;  // of the axis of values

// What is drawn, and where.
struct Scale {
    double mostSeconds = 1;
    double mostValue = 1;

    [[nodiscard]] double X(double seconds) const {
        return kLeft + seconds / mostSeconds * (kWidth - kLeft - kRight);
    }
    [[nodiscard]] double Y(double value) const {
        return kHeight - kBottom - value / mostValue * (kHeight - kTop - kBottom);
    }
};

// A number of which a fourth has few digits, and which is not below.
double RoundUp(double number, bool isBytes) {
    double step = isBytes ? std::pow(1024, std::floor(std::log2(std::max(number, 1.0)) / 10)) : 1;
    while (!isBytes && step * 40 < number) {
        step *= 10;
    }
    double most = step;
    for (int i = 0; most < number; ++i) {
        most *= i % 2 == 0 ? 2 : isBytes ? 2 : 2.5;
    }
    return std::max(most, 4.0);
}

bool IsOfBytes(const Chart& chart) {
    return chart.unit.starts_with("B");
}

std::string NumberText(double value, const Chart& chart) {
    if (IsOfBytes(chart)) {
        return HumanSize(static_cast<std::uint64_t>(value)) + chart.unit.substr(1);
    }
    return fmt::format("{:g} {}", std::round(value * 10) / 10, chart.unit);
}

Scale ScaleOf(const Chart& chart) {
    Scale scale;
    double most = chart.least.value_or(0);
    for (const auto& line : chart.lines) {
        for (const auto& point : line.points) {
            scale.mostSeconds = std::max(scale.mostSeconds, point.seconds);
            most = std::max(most, point.value.value_or(0));
        }
    }
    scale.mostValue = most == chart.least ? most : RoundUp(most, IsOfBytes(chart));
    return scale;
}

std::string AxesOf(const Chart& chart, const Scale& scale) {
    std::string text;
    for (int i = 0; i <= kSteps; ++i) {
        const double value = scale.mostValue * i / kSteps;
        text += fmt::format(
            "<line class=\"grid\" x1=\"{:.1f}\" y1=\"{:.1f}\" x2=\"{:.1f}\" y2=\"{:.1f}\"/>"
            "<text class=\"tick\" x=\"{:.1f}\" y=\"{:.1f}\" text-anchor=\"end\">{}</text>\n",
            kLeft, scale.Y(value), kWidth - kRight, scale.Y(value), kLeft - 6, scale.Y(value) + 4,
            Escaped(NumberText(value, chart)));
        const double seconds = scale.mostSeconds * i / kSteps;
        text += fmt::format(
            "<text class=\"tick\" x=\"{:.1f}\" y=\"{:.1f}\" text-anchor=\"middle\">{:.1f}</text>\n",
            scale.X(seconds), kHeight - kBottom + 16, seconds);
    }
    return text + fmt::format(
                      "<text class=\"tick\" x=\"{:.1f}\" y=\"{:.1f}\" text-anchor=\"middle\">"
                      "time in seconds</text>\n",
                      (kLeft + kWidth - kRight) / 2, kHeight - 8);
}

// The pieces between gaps, and a dot for each number.
std::string PathOf(const ChartLine& line, std::size_t number, const Chart& chart, const Scale& scale) {
    std::string path;
    std::string dots;
    bool isDrawing = false;
    for (const auto& point : line.points) {
        if (point.value) {
            const double x = scale.X(point.seconds);
            const double y = scale.Y(*point.value);
            path += fmt::format("{}{:.1f} {:.1f}", isDrawing ? " L" : " M", x, y);
            dots += fmt::format(
                "<circle class=\"line-{}\" cx=\"{:.1f}\" cy=\"{:.1f}\" r=\"2.5\"><title>{}: {} "
                "at {:.1f} s</title></circle>\n",
                number, x, y, Escaped(line.label), Escaped(NumberText(*point.value, chart)), point.seconds);
        }
        isDrawing = point.value.has_value();
    }
    return path.empty() ? "" : fmt::format("<path class=\"line-{}\" d=\"{}\"/>\n{}", number, path, dots);
}

}  // namespace

std::string Escaped(const std::string& text) {
    std::string escaped;
    escaped.reserve(text.size());
    for (const char c : text) {
        switch (c) {
            case '&':
                escaped += "&amp;";
                break;
            case '<':
                escaped += "&lt;";
                break;
            case '>':
                escaped += "&gt;";
                break;
            case '"':
                escaped += "&quot;";
                break;
            default:
                escaped += static_cast<unsigned char>(c) < 0x20 && c != '\n' && c != '\t' ? '?' : c;
        }
    }
    return escaped;
}

std::string SvgOf(const Chart& chart) {
    const Scale scale = ScaleOf(chart);
    std::string lines;
    std::string legend;
    for (std::size_t i = 0; i < chart.lines.size(); ++i) {
        const std::string path = PathOf(chart.lines[i], i, chart, scale);
        lines += path;
        legend += fmt::format("<span class=\"key\"><i class=\"line-{}\"></i>{}{}</span>", i,
                              Escaped(chart.lines[i].label), path.empty() ? " (no numbers)" : "");
    }
    if (lines.empty()) {
        lines = fmt::format(
            "<text class=\"none\" x=\"{}\" y=\"{}\" text-anchor=\"middle\">no numbers in "
            "this time</text>\n",
            (kLeft + kWidth - kRight) / 2, (kTop + kHeight - kBottom) / 2);
    }
    return fmt::format(
        "<figure><figcaption>{0}</figcaption>\n"
        "<svg viewBox=\"0 0 {1} {2}\" role=\"img\" aria-label=\"{0}\">\n{3}{4}</svg>\n"
        "<div class=\"legend\">{5}</div></figure>\n",
        Escaped(chart.title), kWidth, kHeight, AxesOf(chart, scale), lines, legend);
}

}  // namespace cli
