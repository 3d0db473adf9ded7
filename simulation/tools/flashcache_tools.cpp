// The four cache tools, with the command lines that the appliance's programs give them.
#include <charconv>
#include <optional>

#include "simulation/tools/tool.h"

namespace simulation {

namespace {

// What the command lines have in common: options first, then device paths and names.
struct CommandLine {
    bool newFormat = false;  // -n
    bool force = false;      // -f
    bool check = false;      // -c
    std::string mode;        // -p
    std::string size;        // -s
    Words rest;
    bool valid = true;

    const char* Version() const { return newFormat ? "10" : "2"; }
};

CommandLine Parse(const Words& arguments, const std::string& allowed) {
    CommandLine line;
    for (size_t i = 0; i < arguments.size(); ++i) {
        const std::string& word = arguments[i];
        if (word.empty() || word[0] != '-') {
            line.rest.push_back(word);
            continue;
        }
        const bool takesValue = word == "-p" || word == "-s";
        if (word.size() != 2 || allowed.find(word[1]) == std::string::npos || !line.rest.empty() ||
            (takesValue && i + 1 == arguments.size())) {
            line.valid = false;
            break;
        }
        line.newFormat |= word == "-n";
        line.force |= word == "-f";
        line.check |= word == "-c";
        if (takesValue) {
            (word == "-p" ? line.mode : line.size) = arguments[++i];
        }
    }
    return line;
}

// A size such as 65536k in bytes; without a unit it counts sectors of 512 bytes.
std::optional<uint64_t> ParseSize(const std::string& text) {
    uint64_t value = 0;
    const char* const last = text.data() + text.size();
    const auto [end, error] = std::from_chars(text.data(), last, value);
    const std::string unit(end, last);
    const uint64_t factor = unit.empty()                 ? 512
                            : unit == "k" || unit == "K" ? 1ULL << 10
                            : unit == "m" || unit == "M" ? 1ULL << 20
                            : unit == "g" || unit == "G" ? 1ULL << 30
                                                         : 0;
    uint64_t bytes = 0;
    const bool fits = error == std::errc() && factor != 0 && !__builtin_mul_overflow(value, factor, &bytes);
    return fits && bytes > 0 ? std::optional(bytes) : std::nullopt;
}

int Report(const char* tool, const Answer& answer) {
    return answer.error == 0 ? 0 : Refuse(std::string(tool) + ": " + answer.text);
}

}  // namespace

int FlashcacheCreate(const Words& arguments) {
    const CommandLine line = Parse(arguments, "nsp");
    const std::optional<uint64_t> bytes = line.size.empty() ? 0 : ParseSize(line.size);
    if (!line.valid || line.rest.size() != 3 || line.mode.empty()) {
        return Refuse("usage: flashcache_create [-n] [-s SIZE[k|m|g]] -p thru|back|around NAME SSD DISK");
    }
    if (!bytes) {
        return Refuse("flashcache_create: bad size: " + line.size);
    }
    return Report("flashcache_create", AskKernel({"create", line.rest[0], line.rest[1], line.rest[2],
                                                  line.mode, line.Version(), std::to_string(*bytes)}));
}

int FlashcacheLoad(const Words& arguments) {
    const CommandLine line = Parse(arguments, "c");
    if (line.valid && line.check && line.rest.size() == 1) {
        const Answer answer = AskKernel({"probe", line.rest[0]});
        Refuse(answer.error == 0 ? "flashcache_load: " + line.rest[0] + ": metadata existed"
                                 : "flashcache_load: " + answer.text);
        return answer.error == 0 ? 0 : 1;
    }
    if (!line.valid || line.check || line.rest.size() != 3) {
        return Refuse("usage: flashcache_load SSD NAME DISK | -c SSD");
    }
    return Report("flashcache_load", AskKernel({"load", line.rest[1], line.rest[0], line.rest[2]}));
}

int FlashcacheDestroy(const Words& arguments) {
    const CommandLine line = Parse(arguments, "f");
    if (!line.valid || !line.force || line.rest.size() != 1) {
        return Refuse("usage: flashcache_destroy -f SSD");
    }
    return Report("flashcache_destroy", AskKernel({"wipe", line.rest[0]}));
}

int FlashcacheExpand(const Words& arguments) {
    const CommandLine line = Parse(arguments, "np");
    if (!line.valid || line.rest.size() != 3 || line.mode.empty()) {
        return Refuse("usage: flashcache_expand -p thru|back|around [-n] NAME SSD DISK");
    }
    return Report("flashcache_expand",
                  AskKernel({"expand", line.rest[0], line.rest[1], line.rest[2], line.mode, line.Version()}));
}

}  // namespace simulation
