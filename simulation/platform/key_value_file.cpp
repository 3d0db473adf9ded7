#include <algorithm>
#include <cstring>
#include <optional>

#include "simulation/platform/errors.h"
#include "simulation/platform/text.h"
#include "simulation/platform/whole_file.h"

using namespace vemo::platform;

namespace {

struct Pair {
    std::string_view key;
    std::string_view value;
};

// The pair of a line such as `buildnumber="42218"\n`; nothing for comments and lines without a pair.
std::optional<Pair> ParsePair(std::string_view line) {
    if (!line.empty() && line.back() == '\n') line.remove_suffix(1);
    const size_t equals = line.find('=');
    if (equals == line.npos || line.find('\0') != line.npos) return {};
    const std::string_view key = Trim(line.substr(0, equals));
    if (key.empty() || key.front() == '#') return {};
    std::string_view value = line.substr(equals + 1);
    if (value.size() >= 2 && value.front() == '"' && value.back() == '"') {
        value = value.substr(1, value.size() - 2);
    }
    return Pair{key, value};
}

// The line to write for a pair; nothing when it would not read back as that pair.
std::optional<std::string> PairLine(std::string_view key, std::string_view value) {
    if (key.find_first_of("\r\n") != key.npos || value.find_first_of("\r\n") != value.npos) return {};
    std::string line(key);
    // A value in quotes would lose them in the reading: it gets a second pair.
    const bool quoted = value.size() >= 2 && value.front() == '"' && value.back() == '"';
    line.append(quoted ? "=\"" : "=").append(value).append(quoted ? "\"\n" : "\n");
    const auto readBack = ParsePair(line);
    if (!readBack || readBack->key != key || readBack->value != value) return {};
    return line;
}

// `text` with `line` in the place of the first line with `key`, or at the end.
std::string WithPair(std::string_view text, std::string_view key, const std::string& line) {
    std::string edited;
    bool written = false;
    std::string_view old;
    while (NextLine(text, old)) {
        const auto pair = written ? std::nullopt : ParsePair(old);
        const bool replace = pair && pair->key == key;
        edited += replace ? std::string_view(line) : old;
        written = written || replace;
    }
    if (written) return edited;
    if (!edited.empty() && edited.back() != '\n') edited += '\n';
    return edited + line;
}

// `text` without the lines with `key`: a second one must not come to light when the first is gone.
std::string WithoutPair(std::string_view text, std::string_view key) {
    std::string kept;
    std::string_view line;
    while (NextLine(text, line)) {
        const auto pair = ParsePair(line);
        if (!pair || pair->key != key) kept += line;
    }
    return kept;
}

}  // namespace

int VLIBCFileGetKeyValue(const char* file, const char* key, char* buffer, int size, int /*flag*/) {
    if (file == nullptr || key == nullptr || buffer == nullptr || size <= 0)
        return Fail(VLIBC_ERR_BAD_PARAMETER);
    return Guard(-1, [&] {
        const auto text = ReadWholeFile(file);
        if (!text) return -1;
        std::string_view rest = *text;
        std::string_view line;
        while (NextLine(rest, line)) {
            const auto pair = ParsePair(line);
            if (!pair || pair->key != key) continue;
            const size_t length = std::min(pair->value.size(), static_cast<size_t>(size) - 1);
            std::memcpy(buffer, pair->value.data(), length);
            buffer[length] = '\0';
            return 1;
        }
        return 0;
    });
}

int VLIBCFileSetKeyValue(const char* file, const char* key, const char* value, int /*flag*/) {
    if (file == nullptr || key == nullptr || value == nullptr) return Fail(VLIBC_ERR_BAD_PARAMETER);
    return Guard(-1, [&] {
        const auto line = PairLine(key, value);
        if (!line) {
            errno = EINVAL;
            return Fail(VLIBC_ERR_BAD_PARAMETER);
        }
        const auto text = ReadFileToEdit(file);
        if (!text || ReplaceFile(file, WithPair(*text, key, *line)) != 0) return -1;
        return 1;
    });
}

int VLIBCFileRemoveKey(const char* file, const char* key) {
    if (file == nullptr || key == nullptr) return Fail(VLIBC_ERR_BAD_PARAMETER);
    return Guard(-1, [&] {
        const auto text = ReadWholeFile(file);
        if (!text) return -1;
        const std::string kept = WithoutPair(*text, key);
        if (kept.size() == text->size()) return 0;
        return ReplaceFile(file, kept) == 0 ? 1 : -1;
    });
}
