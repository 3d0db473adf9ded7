// What the tool reads of the kernel and of its admins: counts, spans of time, filters.
#include <algorithm>
#include <cinttypes>
#include <sstream>

#include "caches/config_damage.h"
#include "caches/kernel_files.h"
#include "fuzz/target.h"
#include "output/filter.h"
#include "support/time.h"

namespace {

// Whether sscanf reads this number behind the name, too.
bool Stands(const std::string& text, const std::string& name, std::int64_t number) {
    const std::string key = name + "=";
    for (std::size_t at = text.find(key); at != std::string::npos; at = text.find(key, at + 1)) {
        std::int64_t read = 0;
        if (std::sscanf(text.c_str() + at + key.size(), "%" SCNd64, &read) == 1 && read == number) {
            return true;
        }
    }
    return false;
}

// Lines that are no damage are ones that the platform reads or passes over; the line that is told is there.
void Damage(const std::string& text) {
    std::istringstream file(text);
    if (const auto damage = cli::FindDamage(file)) {
        const auto lines = 1 + std::count(text.begin(), text.end(), '\n');
        fuzz::Require(
            damage->line >= 1 && damage->line <= static_cast<std::size_t>(lines) && !damage->why.empty(),
            "damage is told with its line");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(fuzz::TextOf(data, size));
    for (const auto& [name, count] : cli::CountsOf(text)) {
        fuzz::Require(Stands(text, name, count), "a count stands in the text");
    }
    Damage(text);
    if (const auto span = cli::ParseSpan(text)) {
        fuzz::Require(span->count() > 0 && span->count() <= 366L * 86400, "a span is a year at most");
    }
    cli::SpanUntil(text, std::chrono::system_clock::time_point());
    if (cli::WhyNoFilter(text).empty()) {
        fuzz::Require(!cli::FilterOf(text).key.empty(), "a filter is of a field");
    }
    return 0;
}
