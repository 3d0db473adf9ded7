// Blocks that never reached the volume, or will not: those that a flush gave up, and those that are dropped
// by consent.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "output/record.h"
#include "support/failure.h"

namespace cli {

struct Lost {
    std::optional<std::uint64_t> blocks = 0;  // nothing: some may be lost, and how many is not known
    std::uint64_t blockSize = 0;              // bytes; 0: not known
    bool isAgreed = false;                    // dropped by consent

    [[nodiscard]] bool IsNone() const { return blocks == 0U; }
};

std::vector<Field> FieldsOf(const Lost& lost);
std::string TextOf(const Lost& lost, const std::string& volume);  // a sentence

// What goes with the cache on an SSD that is not up; none when there is no cache on it.
Lost LostWith(const std::string& ssd);

// The same before it is lost: "20 blocks (1.2 MiB) that are not yet on its volume /dev/vg1/volume_1".
std::string HeldAlone(const Lost& held, const std::string& volume);

// Has an answer's record and headline tell the loss.
void AddLoss(Record& record, std::string& headline, const std::string& volume, const Lost& lost);

// Has a failure tell the loss, too, if there is one.
void AddLoss(Failure& failure, const std::string& volume, const Lost& lost);

}  // namespace cli
