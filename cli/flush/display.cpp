#include "flush/display.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <unistd.h>

#include <algorithm>
#include <string_view>
#include <vector>

#include "output/answer.h"
#include "output/terminal.h"

namespace cli {
namespace {

using std::chrono::milliseconds;

std::string TimeText(std::uint64_t seconds) {
    const auto minutes = seconds / 60;
    return minutes < 60 ? fmt::format("{}:{:02}", minutes, seconds % 60)
                        : fmt::format("{}:{:02}:{:02}", minutes / 60, minutes % 60, seconds % 60);
}

std::string StallText(const Progress& progress) {
    return fmt::format("stalled: {}",
                       WhyWriteBacksFailed(progress).value_or("no block was written back for a while"));
}

using Facts = std::vector<std::string>;  // the weightiest first

std::string LeftText(const Progress& progress) {
    if (!progress.dirtyBlocks) {
        return "dirty blocks not known";
    }
    const std::string size = progress.blockSize > 0
                                 ? fmt::format(" ({})", HumanSize(*progress.dirtyBlocks * progress.blockSize))
                                 : "";
    return fmt::format("{} blocks{} left", *progress.dirtyBlocks, size);
}

// "1203 blocks (75.2 MiB) left", "12.3 MiB/s", "0:06 to go"
Facts FactsOf(const Progress& progress) {
    if (progress.dirtyBlocks == 0U) {
        // Refused blocks may have been given up: then not all were written.
        const auto failed = WhyWriteBacksFailed(progress);
        return failed ? Facts{"no dirty blocks left", *failed} : Facts{"all blocks are written back"};
    }
    Facts facts = {LeftText(progress)};
    if (progress.stalled) {
        facts.push_back(StallText(progress));
        return facts;
    }
    if (progress.blocksPerSecond && progress.blockSize > 0) {
        const double bytes = *progress.blocksPerSecond * static_cast<double>(progress.blockSize);
        facts.push_back(fmt::format("{}/s", HumanSize(static_cast<std::uint64_t>(bytes))));
    }
    if (const auto left = SecondsLeft(progress); left && *left > 0) {
        facts.push_back(fmt::format("{} to go", TimeText(*left)));
    }
    return facts;
}

// 100 when nothing is dirty any more, and not by rounding.
std::string PercentText(const Progress& progress) {
    const double most = progress.dirtyBlocks == 0U ? 100.0 : 99.0;
    return progress.percent ? fmt::format("{:3.0f}%", std::clamp(*progress.percent, 0.0, most)) : "  -%";
}

std::string BarText(const Progress& progress) {
    constexpr std::size_t kCells = 24;
    const double part = std::clamp(progress.percent.value_or(0) / 100, 0.0, 1.0);
    const auto full = static_cast<std::size_t>(part * kCells);
    return fmt::format("[{}{}]", std::string(full, '#'), std::string(kCells - full, '.'));
}

// As many facts as the width holds, whole ones: a number that is cut would be another number.
std::string Fitting(std::string line, const Facts& facts, std::size_t width) {
    std::string_view separator = "  ";
    for (const auto& fact : facts) {
        if (line.size() + separator.size() + fact.size() > width) {
            break;
        }
        line.append(separator).append(fact);
        separator = ", ";
    }
    return line;
}

std::string LineOf(const std::string& name, const Progress& progress, std::size_t width) {
    const std::string percent = PercentText(progress);
    const Facts facts = FactsOf(progress);
    std::string start = fmt::format("{} {} {}", name, BarText(progress), percent);
    // Where the bar leaves no room for the first fact, it is the bar that goes.
    if (start.size() + 2 + facts.front().size() > width) {
        start = fmt::format("{} {}", name, percent);
    }
    return Fitting(start.size() > width ? percent : start, facts, width);
}

}  // namespace

ProgressDisplay::ProgressDisplay(const std::string& cacheName, bool json)
    : cacheName_(Printable(cacheName)), json_(json), bar_(!json && isatty(STDERR_FILENO) == 1) {}

ProgressDisplay::~ProgressDisplay() {
    LeaveBar();
}

milliseconds ProgressDisplay::Interval() const {
    return bar_ ? milliseconds(500) : milliseconds(json_ ? 2000 : 5000);
}

void ProgressDisplay::Show(const Progress& progress) {
    if (IsQuiet()) {
        return;
    }
    if (json_) {
        PrintStep(One("progress", {FieldsOf(progress)}));
    } else if (bar_) {
        ShowBar(progress);
    } else if (!endShown_ && (progress.percent || progress.dirtyBlocks != 0U)) {
        const std::string percent = progress.percent ? PercentText(progress) + " flushed, " : "";
        PrintRemark(fmt::format("{}: {}{}\n", cacheName_, percent, fmt::join(FactsOf(progress), ", ")));
        endShown_ = progress.dirtyBlocks == 0U;
    }
}

void ProgressDisplay::ShowBar(const Progress& progress) {
    // A line that wraps could not be drawn over.
    PrintRemark(fmt::format("\r{}\x1b[K", LineOf(cacheName_, progress, TerminalWidth(STDERR_FILENO) - 1)));
    onBarLine_ = true;
}

void ProgressDisplay::LeaveBar() {
    if (onBarLine_) {
        PrintRemark("\n");
        onBarLine_ = false;
    }
}

void ProgressDisplay::Say(const std::string& text) {
    LeaveBar();
    Note(text);
}

}  // namespace cli
