// A cache written down as plainly as can be: a list of blocks that is searched from end to end.
#pragma once

#include <algorithm>
#include <optional>
#include <vector>

#include "sizing/miniature/miniature.h"

namespace sizing {

class NaiveCache {
  public:
    NaiveCache(const CacheOptions& options, std::uint64_t slotsOfASet, std::uint64_t sets)
        : options_(options), slotsOfASet_(slotsOfASet), sets_(sets) {}

    void Add(const Request& request) {
        const std::uint64_t size = options_.blockSize.Bytes();
        for (std::uint64_t at = request.offset; at < request.offset + request.length;) {
            const std::uint64_t end = std::min((at / size + 1) * size, request.offset + request.length);
            Use(at / size, end - at == size, request.kind);
            at = end;
        }
        Clean();
    }

    const Counters& Counts() const { return counts_; }
    std::uint64_t Dirty() const {
        return static_cast<std::uint64_t>(std::ranges::count(blocks_, true, &Block::isDirty));
    }

  private:
    struct Block {
        std::uint64_t number;
        bool isDirty;
        std::uint64_t age;  // the smaller the older
    };

    std::uint64_t SetOf(std::uint64_t block) const { return block / 512 % sets_; }
    void Count(Counter counter) { counts_.Add(counter); }
    Block* Find(std::uint64_t number) {
        const auto found = std::ranges::find(blocks_, number, &Block::number);
        return found == blocks_.end() ? nullptr : &*found;
    }
    void Drop(std::uint64_t number) {
        std::erase_if(blocks_, [&](const Block& block) { return block.number == number; });
    }
    std::optional<std::uint64_t> Oldest(std::uint64_t set, bool isDirty) const {
        const Block* oldest = nullptr;
        for (const Block& block : blocks_) {
            const bool isOne = SetOf(block.number) == set && block.isDirty == isDirty;
            oldest = isOne && (oldest == nullptr || block.age < oldest->age) ? &block : oldest;
        }
        return oldest == nullptr ? std::nullopt : std::optional(oldest->number);
    }
    std::uint64_t CountIn(std::uint64_t set, bool dirtyAlone) const {
        return static_cast<std::uint64_t>(std::ranges::count_if(blocks_, [&](const Block& block) {
            return SetOf(block.number) == set && (block.isDirty || !dirtyAlone);
        }));
    }
    Block* Enter(std::uint64_t number) {
        if (CountIn(SetOf(number), false) == slotsOfASet_) {
            const auto oldest = Oldest(SetOf(number), false);
            if (!oldest) {
                Count(Counter::kNoRoom);
                return nullptr;
            }
            Drop(*oldest);
            Count(Counter::kReplacement);
        }
        Count(Counter::kSsdWrites);
        blocks_.push_back({number, false, ++clock_});
        return &blocks_.back();
    }
    void SetDirty(Block& block, bool isDirty) {
        if (block.isDirty != isDirty) {
            Count(isDirty ? Counter::kMetadataDirties : Counter::kMetadataCleans);
            block.isDirty = isDirty;
            block.age = ++clock_;
        }
    }

    void Use(std::uint64_t number, bool isWhole, Kind kind) {
        Block* block = Find(number);
        if (kind == Kind::kDiscard) {
            if (block != nullptr) {
                Count(isWhole ? Counter::kWriteInvalidates : Counter::kSsdWrites);
            }
            if (isWhole) {
                Drop(number);
            }
            return;
        }
        Count(kind == Kind::kRead ? Counter::kReads : Counter::kWrites);
        const bool isHitOfWrite = kind == Kind::kWrite && options_.mode != WriteMode::kAround;
        if (block != nullptr && (kind == Kind::kRead || isHitOfWrite)) {
            Count(kind == Kind::kRead ? Counter::kReadHits : Counter::kWriteHits);
            block->age = options_.knobs[Knob::kReclaimPolicy] == kReclaimLru ? ++clock_ : block->age;
        }
        kind == Kind::kRead ? Read(number, block) : Write(number, block, isWhole);
    }
    void Read(std::uint64_t number, const Block* block) {
        Count(block != nullptr ? Counter::kSsdReads : Counter::kDiskReads);
        if (block == nullptr && Enter(number) == nullptr) {
            Count(Counter::kUncachedReads);
        }
    }
    void Write(std::uint64_t number, Block* block, bool isWhole) {
        if (options_.mode == WriteMode::kBack) {
            const bool isHit = block != nullptr;
            if (isHit) {
                Count(Counter::kSsdWrites);
                counts_.Add(Counter::kDirtyWriteHits, block->isDirty ? 1 : 0);
            } else {
                counts_.Add(Counter::kDiskReads, isWhole ? 0 : 1);
                block = Enter(number);
            }
            if (block != nullptr) {
                counts_.Add(Counter::kWriteMissSsd, isHit ? 0 : 1);
                return SetDirty(*block, true);
            }
        } else if (options_.mode == WriteMode::kAround) {
            Drop(number);
            block = nullptr;
        } else if (block != nullptr) {
            Count(Counter::kSsdWrites);
        } else if (isWhole) {
            block = Enter(number);
        }
        Count(Counter::kDiskWrites);
        counts_.Add(Counter::kUncachedWrites, block == nullptr ? 1 : 0);
    }
    void Clean() {
        const auto percent = static_cast<std::uint64_t>(options_.knobs[Knob::kDirtyThreshPct]);
        for (std::uint64_t set = 0; set < sets_; ++set) {
            while (CountIn(set, true) > slotsOfASet_ * percent / 100) {
                SetDirty(*Find(*Oldest(set, true)), false);
                Count(Counter::kSsdReads);
                Count(Counter::kDiskWrites);
                Count(Counter::kCleanings);
            }
        }
    }

    CacheOptions options_;
    std::uint64_t slotsOfASet_;
    std::uint64_t sets_;
    std::vector<Block> blocks_;
    std::uint64_t clock_ = 0;
    Counters counts_;
};

}  // namespace sizing
