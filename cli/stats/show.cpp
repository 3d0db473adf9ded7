#include "stats/show.h"

#include <fmt/format.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <sstream>

#include "output/answer.h"
#include "output/terminal.h"
#include "stats/view.h"

namespace cli {
namespace {

using Clock = std::chrono::steady_clock;

// False as soon as nobody reads standard output any more.
bool WaitUntil(Clock::time_point time) {
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(time - Clock::now()).count();
        if (left <= 0) {
            return true;
        }
        // An hour at most: longer times do not fit.
        pollfd output{STDOUT_FILENO, 0, 0};
        if (poll(&output, 1, static_cast<int>(std::min<std::int64_t>(left, 3600000))) > 0) {
            return false;
        }
    }
}

// The time of the next reading. One that took too long moves all that follow: no interval is a short one.
Clock::time_point NextAfter(Clock::time_point last, std::chrono::duration<double> interval) {
    const auto step = std::chrono::duration_cast<Clock::duration>(interval);
    const auto now = Clock::now();
    return last + step > now ? last + step : now + step;
}

// Draws each table over the one before it.
class TableInPlace {
  public:
    void Show(const Round& round) {
        courses_.Add(round);
        const TerminalSize size = SizeOfTerminal(STDOUT_FILENO);
        const bool isTerminal = size.columns > 0 && CanMoveCursor();
        std::istringstream table(TextInForm(courses_.TableOf(round, hasBlocks_, size.columns), size.columns));
        std::string text;
        std::size_t rows = 0;
        for (std::string line; std::getline(table, line); ++rows) {
            // A line that wraps could not be drawn over.
            text += (isTerminal ? CutToWidth(line, size.columns) : line) + "\n";
        }
        if (isTerminal && rows_ > 0 && rows_ < size.rows) {
            text.insert(0, fmt::format("\x1b[{}A\r\x1b[J", rows_));
        }
        PrintText(text);
        rows_ = rows;
    }

  private:
    Courses courses_;
    bool hasBlocks_ = HasUtf8();
    std::size_t rows_ = 0;  // of the table that stands there
};

class Shower {
  public:
    explicit Shower(Lines lines) : lines_(lines) {}

    void Show(Round round) {
        if (lines_ != Lines::kJson && round.remark == remark_) {
            round.remark.clear();  // said before
        } else {
            remark_ = round.remark;
        }
        if (lines_ == Lines::kForPeople) {
            table_.Show(round);
            return;
        }
        TellEvents(round);
        const Answer answer = RecordsOf(round);
        if (lines_ == Lines::kJson) {
            Print(answer, true);
            return;
        }
        PrintCsv(answer, !hasHeading_);
        hasHeading_ = hasHeading_ || !answer.records.empty();
    }

  private:
    static void TellEvents(const Round& round) {
        for (const auto& cache : round.caches) {
            if (const std::string text = EventText(cache); !text.empty()) {
                Note(text);
            }
        }
    }

    Lines lines_;
    TableInPlace table_;
    bool hasHeading_ = false;
    std::string remark_;
};

}  // namespace

std::chrono::duration<double> SecondsIn(const std::string& text) {
    double seconds = 0;
    const char* last = text.data() + text.size();
    const auto [end, error] = std::from_chars(text.data(), last, seconds, std::chars_format::fixed);
    return std::chrono::duration<double>(error == std::errc() && end == last ? seconds : 0);
}

std::string WhyNoSeconds(const std::string& text) {
    const double seconds = SecondsIn(text).count();
    return seconds >= 0.1 && seconds <= 86400
               ? ""
               : fmt::format("\"{}\" is no number of seconds from 0.1 to 86400", text);
}

void ShowWatch(Watch watch, Lines lines, const Pace& pace) {
    Shower shower(lines);
    auto next = Clock::now();
    for (std::int32_t reading = 1;; ++reading) {
        shower.Show(watch.Look());
        next = NextAfter(next, pace.interval);
        if (reading == pace.count || LostOutput() || !WaitUntil(next)) {
            return;
        }
    }
}

}  // namespace cli
