// Line by line over a stream.
#pragma once

#include <cstdio>
#include <string>

#include "common/log.h"

namespace flashcache {

// Yields the lines of a stream, line end included where there is one. A line longer than the limit
// comes in pieces and reading ends after kLongestText, so that no tool gone wild exhausts memory or
// keeps the caller for ever: closing the stream then ends it.
class LineReader {
  public:
    static constexpr std::size_t kLongestLine = 1U << 20U;
    static constexpr std::size_t kLongestText = 16U << 20U;

    // stream: borrowed, may not be NULL. limit: longest piece in characters.
    explicit LineReader(std::FILE* stream, std::size_t limit = kLongestLine)
        : stream_(stream), limit_(limit) {}

    // The next line, valid until the next call; NULL at the end. Throws std::bad_alloc.
    const char* Next();

  private:
    std::FILE* stream_;
    std::size_t limit_;
    std::size_t total_ = 0;
    std::string line_;
};

// Copies every line into the log, under the caller's own file and line. Returns how many there were.
int LogLines(std::FILE* stream, Where where = Where::current());

}  // namespace flashcache
