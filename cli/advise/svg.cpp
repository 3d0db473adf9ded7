#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "advise/curve.h"
#include "output/record.h"
#include "report/chart.h"

namespace cli {
namespace {

constexpr double kWidth = 720;
constexpr double kHeight = 400;
constexpr double kLeft = 64;
constexpr double kRight = 24;
constexpr double kTop = 72;
constexpr double kBottom = 60;

// Dark ink on nothing, so that paper stays white; on dark screens the other way round.
constexpr const char* kStyle = R"(<style>
svg { color: #222; background: #fff; font: 13px sans-serif }
text { fill: currentColor }
.title { font-size: 16px; font-weight: bold }
.axis { stroke: currentColor; stroke-width: 1 }
.grid { stroke: currentColor; stroke-opacity: 0.15 }
.line { fill: none; stroke-width: 2.5 }
.line-0 { stroke: #0b63c5 } .line-1 { stroke: #b3440a; stroke-dasharray: 8 4 }
.line-2 { stroke: #2d7a34; stroke-dasharray: 2 4 }
.mark { stroke: currentColor; stroke-dasharray: 4 3 }
@media (prefers-color-scheme: dark) {
svg { color: #ddd; background: #161616 }
.line-0 { stroke: #6fb1ff } .line-1 { stroke: #ffa06a } .line-2 { stroke: #7fd189 }
}
@media print { svg { color: #000; background: none } }
</style>
)";

double X(const CurvePicture& picture, double bytes) {
    return kLeft + PlaceOf(picture, bytes) * (kWidth - kLeft - kRight);
}

double Y(double hits) {
    return kHeight - kBottom - hits * (kHeight - kTop - kBottom);
}

std::string PercentAxis() {
    constexpr int kSteps = 5;
    std::string text;
    for (int i = 0; i <= kSteps; ++i) {
        const double hits = static_cast<double>(i) / kSteps;
        text += fmt::format(
            "<line class=\"grid\" x1=\"{0}\" y1=\"{1:.1f}\" x2=\"{2}\" y2=\"{1:.1f}\"/>"
            "<text x=\"{3}\" y=\"{4:.1f}\" text-anchor=\"end\">{5}%</text>\n",
            kLeft, Y(hits), kWidth - kRight, kLeft - 8, Y(hits) + 4, i * 100 / kSteps);
    }
    return text;
}

// Powers of two, as many as the axis has room for.
std::string SizeAxis(const CurvePicture& picture) {
    const auto& points = picture.lines.front().points;
    const auto first = static_cast<int>(std::ceil(std::log2(points.front().bytes)));
    const auto last = static_cast<int>(std::floor(std::log2(points.back().bytes)));
    const int step = std::max(1, (last - first + 7) / 8);
    std::string text;
    for (int power = first; power <= last; power += step) {
        const double bytes = std::exp2(power);
        text += fmt::format(
            "<line class=\"grid\" x1=\"{0:.1f}\" y1=\"{1}\" x2=\"{0:.1f}\" y2=\"{2}\"/>"
            "<text x=\"{0:.1f}\" y=\"{3}\" text-anchor=\"middle\">{4}</text>\n",
            X(picture, bytes), kTop, kHeight - kBottom, kHeight - kBottom + 18,
            HumanSize(static_cast<std::uint64_t>(bytes)));
    }
    return text + fmt::format("<text x=\"{}\" y=\"{}\" text-anchor=\"middle\">size of the cache</text>\n",
                              (kLeft + kWidth - kRight) / 2, kHeight - 14);
}

std::string LinesOf(const CurvePicture& picture) {
    std::string text;
    for (std::size_t i = 0; i < picture.lines.size(); ++i) {
        std::string path;
        for (const CurvePoint& point : picture.lines[i].points) {
            path += fmt::format("{}{:.1f} {:.1f}", path.empty() ? "M" : " L", X(picture, point.bytes),
                                Y(std::clamp(point.hits, 0.0, 1.0)));
        }
        const double x = kLeft + 150 * static_cast<double>(i);
        text += fmt::format(
            "<path class=\"line line-{0}\" d=\"{1}\"/>\n"
            "<line class=\"line line-{0}\" x1=\"{2}\" y1=\"48\" x2=\"{3}\" y2=\"48\"/>"
            "<text x=\"{4}\" y=\"52\">{5}</text>\n",
            i, path, x, x + 28, x + 34, Escaped(picture.lines[i].label));
    }
    return text;
}

// Labels of marks that stand close together stand one below the other.
std::string MarksOf(const CurvePicture& picture) {
    std::string text;
    for (std::size_t i = 0; i < picture.marks.size(); ++i) {
        const CurveMark& mark = picture.marks[i];
        const double x = X(picture, static_cast<double>(mark.bytes));
        const bool isRight = x > kWidth / 2;
        text += fmt::format(
            "<line class=\"mark\" x1=\"{0:.1f}\" y1=\"{1}\" x2=\"{0:.1f}\" y2=\"{2}\"/>"
            "<text x=\"{3:.1f}\" y=\"{4}\" text-anchor=\"{5}\">{6}: {7}</text>\n",
            x, kTop, kHeight - kBottom, isRight ? x - 6 : x + 6,
            kHeight - kBottom - 10 - 18 * static_cast<double>(i), isRight ? "end" : "start",
            Escaped(mark.label), HumanSize(mark.bytes));
    }
    return text;
}

}  // namespace

std::string SvgFileOf(const CurvePicture& picture) {
    return fmt::format(
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
        "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 {0} {1}\" width=\"{0}\" height=\"{1}\" "
        "role=\"img\" aria-label=\"{2}\">\n<title>{2}</title>\n{3}"
        "<text class=\"title\" x=\"{4}\" y=\"26\">{2}</text>\n{5}{6}"
        "<line class=\"axis\" x1=\"{4}\" y1=\"{7}\" x2=\"{4}\" y2=\"{8}\"/>"
        "<line class=\"axis\" x1=\"{4}\" y1=\"{8}\" x2=\"{9}\" y2=\"{8}\"/>\n{10}{11}</svg>\n",
        kWidth, kHeight, Escaped(picture.title), kStyle, kLeft, PercentAxis(), SizeAxis(picture), kTop,
        kHeight - kBottom, kWidth - kRight, LinesOf(picture), MarksOf(picture));
}

}  // namespace cli
