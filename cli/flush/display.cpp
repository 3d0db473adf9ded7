#include "flush/display.h"

#include <fmt/format.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>

#include "output/answer.h"

namespace cli {
namespace {

using std::chrono::milliseconds;

std::size_t TerminalWidth() {
    winsize size{};
    return ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 80;
}

std::string TimeText(std::uint64_t seconds) {
    const auto minutes = seconds / 60;
    return minutes < 60 ? fmt::format("{}:{:02}", minutes, seconds % 60)
                        : fmt::format("{}:{:02}:{:02}", minutes / 60, minutes % 60, seconds % 60);
}

std::string StallText(const Progress& progress) {
    if (const auto refused = progress.writeErrors.value_or(0); refused > 0) {
        return fmt::format("stalled: the volume refused {} writes", refused);
    }
    return "stalled: no block was written back for a while";
}

// "1203 blocks (75.2 MiB) left, 12.3 MiB/s, 0:06 to go"
std::string FactsOf(const Progress& progress) {
    std::string text = "dirty blocks not known";
    if (progress.dirtyBlocks) {
        text = fmt::format("{} blocks ({}) left", *progress.dirtyBlocks,
                           HumanSize(*progress.dirtyBlocks * progress.blockSize));
    }
    if (progress.dirtyBlocks == 0U) {
        // Refused blocks may have been given up: then not all were written.
        const auto refused = progress.writeErrors.value_or(0);
        return refused == 0 ? "all blocks are written back"
                            : fmt::format("no dirty blocks left; the volume refused {} writes", refused);
    }
    if (progress.stalled) {
        return text + ", " + StallText(progress);
    }
    if (progress.blocksPerSecond) {
        const double bytes = *progress.blocksPerSecond * static_cast<double>(progress.blockSize);
        text += fmt::format(", {}/s", HumanSize(static_cast<std::uint64_t>(bytes)));
    }
    if (const auto left = SecondsLeft(progress); left && *left > 0) {
        text += fmt::format(", {} to go", TimeText(*left));
    }
    return text;
}

std::string PercentText(const Progress& progress) {
    return progress.percent ? fmt::format("{:3.0f}%", std::clamp(*progress.percent, 0.0, 100.0)) : "  -%";
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
    if (json_) {
        Print(One("progress", {FieldsOf(progress)}), true);
    } else if (bar_) {
        ShowBar(progress);
    } else {
        const std::string percent = progress.percent ? PercentText(progress) + " flushed, " : "";
        PrintRemark(fmt::format("{}: {}{}\n", cacheName_, percent, FactsOf(progress)));
    }
}

void ProgressDisplay::ShowBar(const Progress& progress) {
    constexpr std::size_t kCells = 24;
    const double part = std::clamp(progress.percent.value_or(0) / 100, 0.0, 1.0);
    const auto full = static_cast<std::size_t>(part * kCells);
    std::string line = fmt::format("{} [{}{}] {}  {}", cacheName_, std::string(full, '#'),
                                   std::string(kCells - full, '.'), PercentText(progress), FactsOf(progress));
    // A line that wraps could not be drawn over.
    line.resize(std::min(line.size(), TerminalWidth() - 1));
    PrintRemark(fmt::format("\r{}\x1b[K", line));
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
