#include "stats/sparkline.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace cli {
namespace {

constexpr std::array<const char*, 8> kBlockSteps = {"▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
constexpr std::array<const char*, 8> kAsciiSteps = {"_", ".", ":", "-", "=", "+", "*", "#"};

double Largest(const Course& course) {
    double largest = 0;
    for (const auto& number : course) {
        largest = std::max(largest, number.value_or(0));
    }
    return largest;
}

}  // namespace

Course Newest(const Course& course, std::size_t columns) {
    Course newest(course);
    newest.insert(newest.begin(), columns, std::nullopt);
    newest.erase(newest.begin(), newest.end() - static_cast<std::ptrdiff_t>(columns));
    return newest;
}

void Add(Course& course, std::optional<double> number, std::size_t columns) {
    course.push_back(number);
    while (course.size() > columns) {
        course.pop_front();
    }
}

std::string Sparkline(const Course& course, std::optional<double> top, bool hasBlocks) {
    const auto& steps = hasBlocks ? kBlockSteps : kAsciiSteps;
    const double most = top.value_or(Largest(course));
    std::string line;
    for (const auto& number : course) {
        if (!number) {
            line += ' ';
            continue;
        }
        // What is above 0 at all stands above the lowest step.
        const double part = most > 0 ? std::clamp(*number / most, 0.0, 1.0) : 0;
        line += steps.at(static_cast<std::size_t>(std::ceil(part * static_cast<double>(steps.size() - 1))));
    }
    return line;
}

}  // namespace cli
