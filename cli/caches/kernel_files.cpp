#include "caches/kernel_files.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <fstream>
#include <sstream>

namespace cli {
namespace {

constexpr std::array kKnobFiles = {
    "cache_all",    "do_sync",     "stop_sync",        "max_clean_ios_total", "max_clean_ios_set",
    "fallow_delay", "fast_remove", "dirty_thresh_pct", "reclaim_policy",      "skip_seq_thresh_kb"};

std::optional<std::string> WholeText(const std::string& path) {
    const std::ifstream file(path);
    std::ostringstream text;
    // Unlike iterators it does not throw when the cache, and its file, go just then. Read at once and whole:
    // of two readings the later one may show hits whose requests the earlier one lacks.
    text << file.rdbuf();
    return text.good() ? std::optional(text.str()) : std::nullopt;
}

std::optional<std::int64_t> NumberIn(std::string_view text) {
    std::int64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size() ? std::optional(number) : std::nullopt;
}

}  // namespace

std::optional<std::int64_t> CountIn(const Counts& counts, std::string_view name) {
    const auto found = counts.find(name);
    return found == counts.end() ? std::nullopt : std::optional(found->second);
}

Counts CountsOf(std::string_view text) {
    constexpr std::string_view kBlank = " \t\n";
    Counts counts;
    while (!text.empty()) {
        text.remove_prefix(std::min(text.find_first_not_of(kBlank), text.size()));
        const std::string_view word = text.substr(0, text.find_first_of(kBlank));
        text.remove_prefix(word.size());
        const auto equals = word.find('=');
        const auto number =
            equals == std::string_view::npos ? std::nullopt : NumberIn(word.substr(equals + 1));
        if (number) {
            counts[std::string(word.substr(0, equals))] = *number;
        }
    }
    return counts;
}

std::optional<Counts> ReadCounts(const std::string& pair, const std::string& file) {
    const auto text = WholeText(fmt::format("/proc/flashcache/{}/{}", pair, file));
    Counts counts = text ? CountsOf(*text) : Counts();
    return counts.empty() ? std::nullopt : std::optional(std::move(counts));
}

std::optional<Counts> ReadKnobs(const std::string& pair) {
    Counts knobs;
    for (const char* knob : kKnobFiles) {
        const auto text = WholeText(fmt::format("/proc/sys/dev/flashcache_{}/{}", pair, knob));
        const auto number =
            text ? NumberIn(std::string_view(*text).substr(0, text->find('\n'))) : std::nullopt;
        if (!number) {
            return std::nullopt;
        }
        knobs[knob] = *number;
    }
    return knobs;
}

FLASHCACHE_HANDLE_STATE HandleStateIn(const Counts& knobs) {
    const auto is = [&](std::string_view knob, std::int64_t value) { return CountIn(knobs, knob) == value; };
    if (is("cache_all", 1)) {
        return is("max_clean_ios_total", 0) && is("max_clean_ios_set", 0)
                   ? FLASHCACHE_HANDLE_STATE_STOP_WRITEBACK
                   : FLASHCACHE_HANDLE_STATE_NORMAL;
    }
    if (!is("cache_all", 0)) {
        return FLASHCACHE_HANDLE_STATE_UNKNOWN;
    }
    return is("do_sync", 1)   ? FLASHCACHE_HANDLE_STATE_FLUSH
           : is("do_sync", 0) ? FLASHCACHE_HANDLE_STATE_REPAIRING
                              : FLASHCACHE_HANDLE_STATE_UNKNOWN;
}

}  // namespace cli
