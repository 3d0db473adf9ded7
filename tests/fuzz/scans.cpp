// The scans of the kernel's and the tools' answers, held against sscanf with the format of the answer, where
// the numbers are such that sscanf itself can be trusted.
#include <sys/syslog.h>

#include <cinttypes>
#include <cstring>
#include <string>

#include "file_statistics/file_statistics.h"
#include "flush/flush.h"
#include "fuzz/target.h"
#include "kernel/kernel.h"
#include "ssd_support/ssd_support.h"

// What the scans log goes nowhere.
extern "C" void syslog(int /*priority*/, const char* /*format*/, ...) {}
extern "C" void __syslog_chk(int /*priority*/, int /*flag*/, const char* /*format*/, ...) {}

namespace {

using fuzz::Require;

constexpr int kTrusted = 1000000000;  // numbers below fit an int, cut or not

void FlushProgress(const char* text) {
    flashcache::FlushCounts counts;
    const bool parsed = flashcache::ParseFlushCounts(text, counts);
    long long initial = 0;
    long long remaining = 0;
    const int read =
        std::sscanf(text, "initial_num_of_dirty=%lld remaining_num_of_dirty=%lld", &initial, &remaining);
    const auto fits = [](long long number) { return number == static_cast<int>(number); };
    if (read == 2 && fits(initial) && fits(remaining)) {
        Require(!parsed || (counts.initial == initial && counts.remaining == remaining),
                "the counts are the text's");
        Require(parsed || std::strlen(text) > 62, "counts of up to 18 digits are read");
    } else {
        Require(!parsed, "what is no progress is not read as one");
    }
    Require(flashcache::FlushPercent(counts) == 100.0F || counts.remaining != 0 || counts.initial <= 0 ||
                counts.initial > 1 << 24,
            "with nothing left a flush is at its end");
}

void SyncErrors(const char* text) {
    long count = -1;
    const bool parsed = flashcache::ParseSyncErrors(text, count);
    const char* found = std::strstr(text, "write_disk_sync_errors=");
    long expected = 0;
    const bool read = found != nullptr && std::sscanf(found, "write_disk_sync_errors=%ld", &expected) == 1;
    Require(read || !parsed, "errors are read where there are some");
    Require(parsed || !read || std::strlen(found) > 41, "a count of up to 18 digits is read");
    Require(!parsed || (expected == 0) == (count == 0), "no count of errors turns into none");
    Require(!parsed || std::labs(expected) >= kTrusted || count == expected, "the count is the text's");
}

void Knob(const char* text) {
    constexpr const char* kEntry = "dev.flashcache_md3+volume_1.cache_all";
    int32_t value = 0;
    int32_t expected = 0;
    const bool read = std::sscanf(text, "dev.flashcache_md3+volume_1.cache_all = %d", &expected) == 1;
    Require(flashcache::ParseSysctlAnswer(text, kEntry, value) == read, "an answer is one of this knob");
    Require(value == expected, "the value is the answer's");
}

// By its own reckoning, in numbers that no capacity overflows.
void SectionName(const char* text) {
    constexpr uint64_t kSize = 120ULL << 30U;
    const char* bar = std::strchr(text, '|');
    uint64_t gib = 0;
    const bool named =
        bar != nullptr && bar[1] >= '0' && bar[1] <= '9' && std::sscanf(bar + 1, "%" SCNu64, &gib) == 1;
    const auto capacity = static_cast<long double>(gib) * (1ULL << 30U);
    const bool near = named && kSize >= capacity - capacity / 10 - 1 && kSize <= capacity + capacity / 10 + 1;
    const bool model =
        bar != nullptr && std::string_view(text, static_cast<std::size_t>(bar - text)).starts_with("SATA");
    Require(!flashcache::SectionFits(text, "SATA", kSize) || (near && model),
            "only a fitting SSD is supported");
}

void Statistics(std::string text) {
    const flashcache::File file(fmemopen(text.data(), text.size(), "r"));
    FLASHCACHE_FILE_STAT_DAY days[flashcache::kDays] = {};
    char volume[8] = "";
    char time[8] = "";
    if (!file || flashcache::ParseStatistics(file.get(), days, flashcache::kDays, volume, sizeof volume, time,
                                             sizeof time) != 0) {
        return;
    }
    const char* line = std::strstr(text.c_str(), "\nDay=");
    FLASHCACHE_FILE_STAT_DAY expected{};
    if (line != nullptr && days[0].Year != 0) {
        std::sscanf(line, "\nDay=%d-%d-%d FileCount=%" SCNu64 " FileSizeSum=%" SCNu64, &expected.Year,
                    &expected.Month, &expected.Day, &expected.FileCount, &expected.FileSizeSum);
        Require(std::memcmp(&expected, days, sizeof expected) == 0 || text.find('\0') != std::string::npos ||
                    text.size() > 1000,
                "a day is the line's");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(fuzz::TextOf(data, size));
    FlushProgress(text.c_str());
    SyncErrors(text.c_str());
    Knob(text.c_str());
    SectionName(text.c_str());
    Statistics(text);
    return 0;
}
