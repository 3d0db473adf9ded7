// What the tool reads of the kernel and of its admins: counts, spans of time, filters.
#include "caches/kernel_files.h"
#include "fuzz/target.h"
#include "output/filter.h"
#include "support/time.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(fuzz::TextOf(data, size));
    for (const auto& [name, count] : cli::CountsOf(text)) {
        fuzz::Require(text.find(name + "=") != std::string::npos, "a count stands in the text");
    }
    if (const auto span = cli::ParseSpan(text)) {
        fuzz::Require(span->count() > 0 && span->count() <= 366L * 86400, "a span is a year at most");
    }
    cli::SpanUntil(text, std::chrono::system_clock::time_point());
    if (cli::WhyNoFilter(text).empty()) {
        fuzz::Require(!cli::FilterOf(text).key.empty(), "a filter is of a field");
    }
    return 0;
}
