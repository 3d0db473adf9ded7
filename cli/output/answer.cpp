#include "output/answer.h"

#include <fmt/format.h>

#include <cstdio>

#include "output/json.h"
#include "output/text.h"

namespace cli {

Answer One(std::string key, Record record, std::string headline) {
    return {std::move(key), Layout::kRecord, {std::move(record)}, std::move(headline), ""};
}

void Print(const Answer& answer, bool json) {
    if (!json && !answer.remark.empty()) {
        Note(answer.remark);
    }
    fmt::print("{}", json ? JsonOf(answer) : TextOf(answer));
    std::fflush(stdout);  // who follows a flush reads line by line
}

void Print(const Failure& failure, bool json) {
    if (json) {
        fmt::print("{}", JsonOf(failure));
    } else {
        std::fflush(stdout);
        fmt::print(stderr, "{}", TextOf(failure));
    }
}

void Note(const std::string& text) {
    fmt::print(stderr, "note: {}\n", Printable(text));
}

}  // namespace cli
