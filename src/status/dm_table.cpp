// What a device-mapper table and the knobs say of a cache.

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "common/text.h"
#include "status/status.h"

namespace flashcache {
namespace {

// A text that filled its buffer may have been cut, and a cut path may name another device: drop it.
void DropIfCut(char (&field)[DmTable::kFieldSize + 1]) noexcept {
    if (std::strlen(field) == DmTable::kFieldSize) {
        field[0] = '\0';
    }
}

void ReplaceText(char*& field, const char* text) {
    Text copy = CopyText(text);
    std::free(field);
    field = copy.release();
}

int32_t WriteModeOfTable(const char* text) noexcept {
    if (SameText(text, "WRITE_BACK")) {
        return FLASHCACHE_WRITE_BACK;
    }
    if (SameText(text, "WRITE_THROUGH")) {
        return FLASHCACHE_WRITE_THRU;
    }
    return SameText(text, "WRITE_AROUND") ? FLASHCACHE_WRITE_AROUND : -1;
}

// The kernel's knob numbers the policies the other way round.
int32_t ReclaimPolicyOfKnob(const char* text) noexcept {
    switch (std::strtol(text, nullptr, 10)) {
        case 0:
            return FLASHCACHE_RECLAIM_FIFO;
        case 1:
            return FLASHCACHE_RECLAIM_LRU;
        default:
            return -1;
    }
}

int32_t Number(const char* text) noexcept {
    return static_cast<int32_t>(std::strtol(text, nullptr, 10));
}

}  // namespace

// Lines such as
// "\tssd dev (/dev/md3), disk dev (/dev/vg1/volume_1) cache mode(WRITE_BACK)"
// "\tcapacity(1024M), associativity(512), data block size(4K) metadata block size(4096b)"
// "\ttotal blocks(262144), cached blocks(1024), cache percent(0)"
// "\tsplit-io(0) support pin file(1)"
void ParseDmTableLine(const char* line, DmTable& table) noexcept {
    std::sscanf(
        line, "\tssd de%*[^(](%128[^)])%*[^a-zA-Z]disk de%*[^(](%128[^)])%*[^a-zA-Z]cache mod%*[^(](%128[^)]",
        table.ssdDevPath, table.spacePath, table.writeMode);
    std::sscanf(line,
                "\tcapacity(%*[^)])%*[^a-zA-Z]associativity(%*[^)])%*[^a-zA-Z]data block size(%128[^K]K)",
                table.blockSizeKb);
    std::sscanf(line, "\ttotal block%*[^(](%128[^)])%*[^a-zA-Z]cached block%*[^(](%128[^)]",
                table.totalBlocks, table.cachedBlocks);
    std::sscanf(line, "\tsplit-io(%*[^)]) support pin file(%d)", &table.supportPin);
    DropIfCut(table.ssdDevPath);
    DropIfCut(table.spacePath);
    DropIfCut(table.writeMode);
}

bool ConvertStatField(FLASHCACHE_STAT& record, StatField field, const char* text) {
    switch (field) {
        case StatField::kSSDDevPath:
            ReplaceText(record.SSDDevPath, text);
            return true;
        case StatField::kSpacePath:
            ReplaceText(record.SpacePath, text);
            return true;
        case StatField::kTotalBlocks:
            record.TotalBlocks = std::strtoull(text, nullptr, 10);
            return true;
        case StatField::kCachedBlocks:
            record.CachedBlocks = std::strtoull(text, nullptr, 10);
            return true;
        case StatField::kWriteMode:
            record.WriteMode = WriteModeOfTable(text);
            return record.WriteMode != -1;
        case StatField::kReclaimPolicy:
            record.ReclaimPolicy = ReclaimPolicyOfKnob(text);
            return record.ReclaimPolicy != -1;
        case StatField::kFallowDelay:
            record.FallowDelay = Number(text);
            return true;
        case StatField::kDirtyThreshPct:
            record.DirtyThreshPct = Number(text);
            return true;
        case StatField::kBlockSizeKB:
            record.BlockSizeKB = static_cast<int32_t>(std::strtoul(text, nullptr, 10));
            return true;
    }
    return true;
}

}  // namespace flashcache
