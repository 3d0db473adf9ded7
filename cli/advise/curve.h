// The miss-ratio curve as pictures are made of it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace cli {

struct CurvePoint {
    double bytes = 0;
    double hits = 0;  // the share of references that hit, from 0 to 1
};

struct CurveLine {
    std::string label;
    std::vector<CurvePoint> points;  // from small to large
};

struct CurveMark {
    std::string label;  // such as "knee"
    std::uint64_t bytes = 0;
};

// Sizes stand on a logarithmic axis from the first to the last point of the lines, which have the same sizes.
struct CurvePicture {
    std::string title;
    std::vector<CurveLine> lines;  // three at the most
    std::vector<CurveMark> marks;
};

// Drawn with characters, for a terminal of so many columns: the first line alone, with Braille dots or, where
// the terminal has none, with stars.
std::string PlotOf(const CurvePicture& picture, std::size_t columns, bool hasBraille);

// A picture that stands alone, for print and for dark screens.
std::string SvgFileOf(const CurvePicture& picture);

// How far along the axis a size stands, from 0 to 1.
double PlaceOf(const CurvePicture& picture, double bytes);

}  // namespace cli
