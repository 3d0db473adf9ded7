#include "output/answer.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstdio>
#include <string_view>
#include <system_error>

#include "output/csv.h"
#include "output/json.h"
#include "output/shape.h"
#include "output/text.h"

namespace cli {
namespace {

constexpr const char* kMayBeDone = "; what was asked for may be done";
constexpr const char* kLook = "vemocachectl status";

Form form;
bool isHeld = false;
std::optional<Failure> lost;  // the first that was wrong with standard output

// A verb goes on when its answer cannot be written: what it does must not end half-way.
void Write(std::string_view text) {
    errno = 0;
    const bool written =
        std::fwrite(text.data(), 1, text.size(), stdout) == text.size() && std::fflush(stdout) == 0;
    if (!written) {
        LoseOutput(errno);
    }
}

// The answer in the form that was asked for; where that cannot be and must not be refused any more, as it is.
Answer InForm(const Answer& answer) {
    try {
        return Shaped(answer, form);
    } catch (const Failure& failure) {
        if (!form.isTooLate) {
            throw;
        }
        if (!lost) {
            lost =
                Failure{"the answer is not in the form that was asked for", failure.why + kMayBeDone, kLook};
        }
        return answer;
    }
}

}  // namespace

void SetForm(const Form& wanted) {
    form = wanted;
}

bool IsQuiet() {
    return form.quiet;
}

void LoseOutput(int error) {
    if (!lost) {
        lost = Failure{"the answer could not be written to standard output",
                       std::generic_category().message(error == 0 ? EIO : error) + kMayBeDone, kLook};
    }
}

std::optional<Failure> LostOutput() {
    return lost;
}

void PrintText(const std::string& text) {
    Write(text);
}

void PrintRemark(std::string_view text) {
    // Nobody could be told that it failed, and that changes nothing of what was done.
    static_cast<void>(std::fwrite(text.data(), 1, text.size(), stderr));
    static_cast<void>(std::fflush(stderr));
}

Answer One(std::string key, Record record, std::string headline) {
    return {std::move(key), Layout::kRecord, {std::move(record)}, std::move(headline), ""};
}

void HoldAnswers(bool held) {
    isHeld = held;
}

void Print(const Answer& answer, bool json) {
    if (isHeld) {
        return;
    }
    const Answer shaped = InForm(answer);
    if (!json && !shaped.remark.empty()) {
        Note(shaped.remark);
    }
    Write(json ? JsonOf(shaped) : TextOf(shaped, form));
}

std::string TextInForm(const Answer& answer, std::size_t columns) {
    Form forTerminal = form;
    forTerminal.columns = columns;
    return TextOf(InForm(answer), forTerminal);
}

void PrintCsv(const Answer& answer, bool withHeading) {
    const Answer shaped = InForm(answer);
    if (!shaped.remark.empty()) {
        Note(shaped.remark);
    }
    if (shaped.records.empty()) {
        return;
    }
    Write((withHeading && !form.noHeadings ? CsvHeadingOf(shaped.records.front()) : "") +
          CsvOf(shaped.records));
}

void PrintStep(const Answer& step) {
    Write(JsonOf(step));  // flushed: who follows reads line by line
}

void Print(const Failure& failure, bool json) {
    if (json) {
        Write(JsonOf(failure));
    } else {
        PrintRemark(TextOf(failure));
    }
}

void Note(const std::string& text) {
    if (IsQuiet()) {
        return;
    }
    PrintRemark(fmt::format("note: {}\n", Printable(text)));
}

}  // namespace cli
