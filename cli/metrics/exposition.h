// The text forms in which metrics are read.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace cli {

struct Sample {
    std::vector<std::pair<std::string, std::string>> labels;
    std::string value;  // a number as text
};

// All samples of one name. A family without samples is left out.
struct Family {
    enum class Type { kCounter, kGauge, kInfo, kStateSet };

    std::string name;  // without the ending that its type asks for: "_total", "_info"
    Type type = Type::kGauge;
    std::string unit;                  // the name's end, such as "bytes"; empty: none
    std::string help;                  // a sentence
    std::vector<Sample> samples = {};  // NOLINT(readability-redundant-member-init): g++ warns of one left out
};

// OpenMetrics 1.0, as scrapers ask for it; and the plain text format before it, which is all that collectors
// of text files understand: it knows neither facts nor sets of states, and names a counter's family as its
// samples.
enum class Exposition { kOpenMetrics, kPlain };

std::string ToText(const std::vector<Family>& families, Exposition exposition);

}  // namespace cli
