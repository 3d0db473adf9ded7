#include "output/step_line.h"

#include <fmt/format.h>
#include <unistd.h>

#include "output/answer.h"
#include "output/terminal.h"

namespace cli {

StepLine::StepLine(bool json) : isShown_(!json && isatty(STDERR_FILENO) == 1 && !IsQuiet()) {}

StepLine::~StepLine() {
    if (isShown_) {
        PrintRemark("\r\x1b[K");
    }
}

void StepLine::Show(const std::string& text) const {
    if (isShown_) {
        const std::size_t columns = TerminalWidth(STDERR_FILENO);
        PrintRemark(fmt::format("\r{}\x1b[K", CutToWidth(text, columns - 1)));
    }
}

void StepLine::Show(const std::string& text, double share) const {
    constexpr std::size_t kCells = 24;
    const auto full = static_cast<std::size_t>(share * kCells);
    Show(fmt::format("[{}{}] {:3.0f}%  {}", std::string(full, '#'), std::string(kCells - full, '.'),
                     share * 100, text));
}

}  // namespace cli
