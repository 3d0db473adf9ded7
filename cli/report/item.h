// What a report is made from: files and the answers of programs, each with what became of the reading.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace cli {

struct ReportItem {
    bool isCommand = false;
    std::string name;           // a path, or the words of a command
    std::string text;           // as it is, or the end of it
    bool isThere = true;        // a file that is not there is not a failure
    bool isCut = false;         // its beginning is left out
    std::string error;          // why it could not be read; empty: it was
    std::optional<int> code;    // of a program that ended by itself
    double milliseconds = 0;    // how long it took
    std::optional<uid_t> user;  // whose the file is
};

// The end of a long file. What is no regular file, below /proc aside, is named and not read: it may never
// end.
ReportItem ReadItem(const std::string& path, std::uint64_t mostBytes = 1U << 20U);

// Runs a program, found by PATH, for so many seconds at the most.
ReportItem RunItem(const std::vector<std::string>& words, double patience);

}  // namespace cli
