// What there is to tell of how a trace was read.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "sizing/request.h"

namespace sizing {

struct BadRecord {
    std::string file;
    std::uint64_t number = 0;  // of the line or binary record in its file, from 1
    std::string why;
};

struct FileNote {
    std::string file;
    std::string note;
};

struct ReadReport {
    static constexpr std::size_t kMostTold = 3;

    std::uint64_t records = 0;         // lines that are not blank, or binary records
    std::uint64_t ignored = 0;         // of which well-formed, but no reads, writes, discards or flushes
    std::uint64_t ofOtherStage = 0;    // of which requests at the stage that does not count: Stage
    std::uint64_t timesBackwards = 0;  // requests that are older than the one before them in their file
    std::uint64_t bad = 0;             // records that do not parse
    std::vector<BadRecord> firstBad;   // at most kMostTold of them
    std::vector<FileNote> formats;     // the format of each file that is not empty
    std::vector<FileNote> cutShort;    // files that could not be read to their end, and why

    // Counts a bad record. Whether it is one of those to be told.
    bool CountBad() { return bad++ < kMostTold; }
    void TellBad(const std::string& file, std::uint64_t number, std::string why) {
        firstBad.push_back({file, number, std::move(why)});
    }

    // Whether the request ends below 2^64; else it is a bad record.
    bool Accept(const Request& request, const std::string& file, std::uint64_t number) {
        if (request.length <= std::numeric_limits<std::uint64_t>::max() - request.offset) {
            return true;
        }
        if (CountBad()) {
            TellBad(file, number, "ends beyond 2^64 bytes");
        }
        return false;
    }

    // Once a file.
    void AddCutShort(const std::string& file, const std::string& why) {
        if (cutShort.empty() || cutShort.back().file != file) {
            cutShort.push_back({file, why});
        }
    }
};

}  // namespace sizing
