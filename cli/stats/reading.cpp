#include "stats/reading.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <fstream>
#include <sstream>

#include "caches/describe.h"
#include "caches/kernel_state.h"

namespace cli {
namespace {

std::string FileOf(const std::string& kernelName, const char* file) {
    return fmt::format("/proc/flashcache/{}/{}", kernelName, file);
}

}  // namespace

Numbers NumbersIn(std::string_view text) {
    constexpr std::string_view kBlank = " \t\n";
    Numbers numbers;
    while (!text.empty()) {
        const std::string_view word = text.substr(0, text.find_first_of(kBlank));
        text.remove_prefix(std::min(text.size(), word.size() + 1));
        const auto equals = word.find('=');
        if (equals == std::string_view::npos) {
            continue;
        }
        std::uint64_t number = 0;
        const char* last = word.data() + word.size();
        const auto [end, error] = std::from_chars(word.data() + equals + 1, last, number);
        if (error == std::errc() && end == last) {
            numbers.emplace(word.substr(0, equals), number);
        }
    }
    return numbers;
}

// Read at once and whole: of two readings the later one may show hits whose requests the earlier one lacks.
Numbers NumbersInFile(const std::string& path) {
    const std::ifstream stream(path);
    std::ostringstream text;
    // Unlike iterators it does not throw when the cache, and its file, go just then.
    text << stream.rdbuf();
    return text.good() ? NumbersIn(text.str()) : Numbers();
}

std::optional<std::uint64_t> NumberOf(const Numbers& numbers, std::string_view name) {
    const auto found = numbers.find(name);
    return found == numbers.end() ? std::nullopt : std::optional(found->second);
}

Reading ReadingOf(const Cache& cache) {
    Reading reading;
    reading.name = cache.Name();
    reading.state = StateText(cache);
    reading.writeMode = WriteModeOf(cache);
    reading.blockSize = cache.BlockSize();
    if (cache.IsUp() && cache.pair) {
        const std::string kernelName = KernelName(cache.pair->ssd, cache.pair->volume);
        reading.counters = NumbersInFile(FileOf(kernelName, "flashcache_stats"));
        reading.errors = NumbersInFile(FileOf(kernelName, "flashcache_errors"));
        reading.totalBlocks = cache.pair->blocks;
        reading.cachedBlocks = cache.stat ? std::optional(cache.stat->CachedBlocks) : std::nullopt;
    }
    reading.dirtyBlocks = DirtyBlocksOf(cache);
    // The moment of the numbers, not that of the programs that were run before for the status.
    reading.time = Reading::Clock::now();
    return reading;
}

Reading Gone(const std::string& name) {
    Reading reading;
    reading.name = name;
    reading.state = "gone";
    reading.time = Reading::Clock::now();
    return reading;
}

}  // namespace cli
