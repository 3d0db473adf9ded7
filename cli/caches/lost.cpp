#include "caches/lost.h"

#include <fmt/format.h>

#include "caches/metadata.h"
#include "caches/ssd_content.h"

namespace cli {

std::vector<Field> FieldsOf(const Lost& lost) {
    return {{"lost_blocks", "Lost blocks", lost.blocks ? Value(*lost.blocks) : Value()},
            {"lost_bytes", "Lost", BytesOf(lost.blocks, lost.blockSize), Format::kBytes}};
}

std::string TextOf(const Lost& lost, const std::string& volume) {
    std::string number = "an unknown number of blocks may be LOST";
    if (lost.blocks) {
        const std::string bytes =
            lost.blockSize == 0 ? "" : fmt::format(", {} bytes", *lost.blocks * lost.blockSize);
        number = fmt::format("{} block{}{} are LOST", *lost.blocks, lost.blocks == 1U ? "" : "s", bytes);
    }
    return lost.isAgreed ? fmt::format("{}: they were dropped, as agreed.", number)
                         : fmt::format("{}: the volume {} refused them, and force-remove gave them up.",
                                       number, volume);
}

Lost LostWith(const std::string& ssd) {
    if (const auto content = ReadSsdContent(ssd)) {
        return {content->dirtyBlocks, content->blockSize, true};
    }
    return {HoldsCache(ssd) ? std::nullopt : std::optional<std::uint64_t>(0), 0, true};
}

std::string HeldAlone(const Lost& held, const std::string& volume) {
    if (!held.blocks) {
        return fmt::format("all blocks that are not yet on its volume {}", volume);
    }
    if (held.IsNone()) {
        return fmt::format("no block that is not on its volume {}", volume);
    }
    return fmt::format("{} block{} ({}) that are not yet on its volume {}", *held.blocks,
                       held.blocks == 1U ? "" : "s", HumanSize(*held.blocks * held.blockSize), volume);
}

void AddLoss(Record& record, std::string& headline, const std::string& volume, const Lost& lost) {
    const auto fields = FieldsOf(lost);
    record.fields.insert(record.fields.end(), fields.begin(), fields.end());
    if (!lost.IsNone()) {
        headline = TextOf(lost, volume) + " " + headline;
    }
}

void AddLoss(Failure& failure, const std::string& volume, const Lost& lost) {
    if (!lost.IsNone()) {
        failure.what = TextOf(lost, volume) + " Then: " + failure.what;
        failure.kind = FailureKind::kDataLost;
    }
}

}  // namespace cli
