#include "output/answer.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstdio>
#include <string_view>
#include <system_error>

#include "output/json.h"
#include "output/text.h"

namespace cli {
namespace {

int firstError = 0;  // of standard output

// A verb goes on when its answer cannot be written: what it does must not end half-way.
void Write(std::string_view text) {
    errno = 0;
    const bool written =
        std::fwrite(text.data(), 1, text.size(), stdout) == text.size() && std::fflush(stdout) == 0;
    if (!written) {
        LoseOutput(errno);
    }
}

}  // namespace

void LoseOutput(int error) {
    if (firstError == 0) {
        firstError = error == 0 ? EIO : error;
    }
}

std::optional<Failure> LostOutput() {
    if (firstError == 0) {
        return std::nullopt;
    }
    return Failure{"the answer could not be written to standard output",
                   std::generic_category().message(firstError),
                   "what was asked for may be done: vemocachectl status"};
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

void Print(const Answer& answer, bool json) {
    if (!json && !answer.remark.empty()) {
        Note(answer.remark);
    }
    Write(json ? JsonOf(answer) : TextOf(answer));  // flushed: who follows a flush reads line by line
}

void Print(const Failure& failure, bool json) {
    if (json) {
        Write(JsonOf(failure));
    } else {
        PrintRemark(TextOf(failure));
    }
}

void Note(const std::string& text) {
    PrintRemark(fmt::format("note: {}\n", Printable(text)));
}

}  // namespace cli
