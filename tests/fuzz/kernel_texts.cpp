// The lines of the device-mapper table and of the counters file.
#include <cstring>
#include <memory>

#include "fuzz/target.h"
#include "status/status.h"

namespace {

void Table(const std::string& line, flashcache::DmTable& table) {
    flashcache::ParseDmTableLine(line.c_str(), table);
    for (const char* field : {table.ssdDevPath, table.spacePath, table.writeMode, table.blockSizeKb,
                              table.totalBlocks, table.cachedBlocks}) {
        fuzz::Require(std::memchr(field, '\0', flashcache::DmTable::kFieldSize + 1) != nullptr,
                      "a field of the table is a text");
    }
}

void Convert(const flashcache::DmTable& table) {
    using flashcache::StatField;
    FLASHCACHE_STAT record{};
    const std::pair<StatField, const char*> fields[] = {
        {StatField::kSSDDevPath, table.ssdDevPath},     {StatField::kSpacePath, table.spacePath},
        {StatField::kTotalBlocks, table.totalBlocks},   {StatField::kCachedBlocks, table.cachedBlocks},
        {StatField::kWriteMode, table.writeMode},       {StatField::kReclaimPolicy, table.totalBlocks},
        {StatField::kBlockSizeKB, table.blockSizeKb},   {StatField::kFallowDelay, table.cachedBlocks},
        {StatField::kDirtyThreshPct, table.totalBlocks}};
    for (const auto& [field, text] : fields) {
        flashcache::ConvertStatField(record, field, text);
    }
    fuzz::Require(record.WriteMode >= -1 && record.WriteMode <= FLASHCACHE_WRITE_AROUND + 4,
                  "a write mode is one of those that there are");
    std::free(record.SSDDevPath);
    std::free(record.SpacePath);
}

void Counters(const std::string& line) {
    for (const auto mode : {FLASHCACHE_WRITE_BACK, FLASHCACHE_WRITE_AROUND}) {
        FLASHCACHE_COUNT_STAT counters{};
        flashcache::ParseIoCounts(line.c_str(), counters);
        flashcache::ParseHitCounts(line.c_str(), mode, counters);
        flashcache::ComputeHitPercents(counters);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    flashcache::DmTable table;
    const std::string text(fuzz::TextOf(data, size));
    for (std::size_t begin = 0; begin < text.size();) {
        const std::size_t end = std::min(text.find('\n', begin), text.size());
        const std::string line = text.substr(begin, end - begin);
        Table(line, table);
        Counters(line);
        begin = end + 1;
    }
    Convert(table);
    return 0;
}
