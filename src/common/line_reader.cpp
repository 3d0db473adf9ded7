#include "common/line_reader.h"

#include <cerrno>

namespace flashcache {
namespace {

// One character, over interrupted reads: a signal of the caller's must not look like the end.
int ReadCharacter(std::FILE* stream) {
    for (;;) {
        const int character = getc_unlocked(stream);
        if (character != EOF || ferror_unlocked(stream) == 0 || errno != EINTR) {
            return character;
        }
        clearerr_unlocked(stream);
    }
}

}  // namespace

const char* LineReader::Next() {
    line_.clear();
    while (line_.size() < limit_ && total_ < kLongestText) {
        const int character = ReadCharacter(stream_);
        if (character == EOF) {
            break;
        }
        line_.push_back(static_cast<char>(character));
        ++total_;
        if (character == '\n') {
            break;
        }
    }
    return line_.empty() ? nullptr : line_.c_str();
}

int LogLines(std::FILE* stream, Where where) {
    int count = 0;
    LineReader lines(stream);
    while (const char* line = lines.Next()) {
        LogError(where)("%s", line);
        ++count;
    }
    return count;
}

}  // namespace flashcache
