#include "sizing/model/counters.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <iterator>

namespace sizing {

namespace {

// One name=value pair: a counter, or its percentage of another.
struct Field {
    const char* name;
    Counter counter;
    Counter percentOf = Counter::kNone;
    bool onlyWriteCaching = false;  // absent from a write-around cache
};

constexpr bool kOnlyWriteCaching = true;

constexpr Field kFields[] = {
    {"read_hits", Counter::kReadHits},
    {"read_hit_percent", Counter::kReadHits, Counter::kReads},
    {"write_hits", Counter::kWriteHits, Counter::kNone, kOnlyWriteCaching},
    {"write_hit_percent", Counter::kWriteHits, Counter::kWrites, kOnlyWriteCaching},
    {"write_miss_ssd", Counter::kWriteMissSsd, Counter::kNone, kOnlyWriteCaching},
    {"dirty_write_hits", Counter::kDirtyWriteHits, Counter::kNone, kOnlyWriteCaching},
    {"dirty_write_hit_percent", Counter::kDirtyWriteHits, Counter::kWrites, kOnlyWriteCaching},
    {"replacement", Counter::kReplacement},
    {"write_replacement", Counter::kWriteReplacement, Counter::kNone, kOnlyWriteCaching},
    {"write_invalidates", Counter::kWriteInvalidates, Counter::kNone, kOnlyWriteCaching},
    {"read_invalidates", Counter::kReadInvalidates},
    {"pending_enqueues", Counter::kNone},
    {"pending_inval", Counter::kNone},
    {"metadata_dirties", Counter::kMetadataDirties, Counter::kNone, kOnlyWriteCaching},
    {"metadata_cleans", Counter::kMetadataCleans, Counter::kNone, kOnlyWriteCaching},
    {"metadata_batch", Counter::kMetadataBatch, Counter::kNone, kOnlyWriteCaching},
    {"metadata_ssd_writes", Counter::kMetadataSsdWrites, Counter::kNone, kOnlyWriteCaching},
    {"cleanings", Counter::kCleanings, Counter::kNone, kOnlyWriteCaching},
    {"fallow_cleanings", Counter::kFallowCleanings, Counter::kNone, kOnlyWriteCaching},
    {"no_room", Counter::kNoRoom},
    {"front_merge", Counter::kNone, Counter::kNone, kOnlyWriteCaching},
    {"back_merge", Counter::kNone, Counter::kNone, kOnlyWriteCaching},
    {"disk_reads", Counter::kDiskReads},
    {"disk_writes", Counter::kDiskWrites},
    {"ssd_reads", Counter::kSsdReads},
    {"ssd_writes", Counter::kSsdWrites},
    {"uncached_reads", Counter::kUncachedReads},
    {"uncached_writes", Counter::kUncachedWrites},
    {"uncached_IO_requeue", Counter::kNone},
    {"uncached_sequential_reads", Counter::kUncachedSequentialReads},
    {"uncached_sequential_writes", Counter::kUncachedSequentialWrites},
};

}  // namespace

Counters& Counters::operator+=(const Counters& other) {
    std::ranges::transform(values_, other.values_, values_.begin(), std::plus<>());
    return *this;
}

void Counters::Scale(double factor) {
    for (std::uint64_t& value : values_) {
        value = static_cast<std::uint64_t>(std::llround(static_cast<double>(value) * factor));
    }
}

std::string_view NameOf(Counter counter) {
    if (counter == Counter::kReads || counter == Counter::kWrites) {
        return counter == Counter::kReads ? "reads" : "writes";
    }
    const auto* const found = std::ranges::find_if(kFields, [&](const Field& field) {
        return counter != Counter::kNone && field.counter == counter && field.percentOf == Counter::kNone;
    });
    return found == std::end(kFields) ? std::string_view() : found->name;
}

void Counters::Set(std::string_view name, std::uint64_t value) {
    for (std::size_t i = 0; i < values_.size(); ++i) {
        if (!name.empty() && name == NameOf(static_cast<Counter>(i))) {
            values_[i] = value;
        }
    }
}

std::string Counters::Format(WriteMode mode) const {
    const Counters& counters = *this;
    std::string text = "reads=" + std::to_string(counters[Counter::kReads]) +
                       " writes=" + std::to_string(counters[Counter::kWrites]) + "\n";
    const char* separator = "";
    for (const Field& field : kFields) {
        if (mode == WriteMode::kAround && field.onlyWriteCaching) {
            continue;
        }
        std::uint64_t value = counters[field.counter];
        if (field.percentOf != Counter::kNone) {
            const std::uint64_t whole = counters[field.percentOf];
            value = whole == 0 ? 0 : value * 100 / whole;
        }
        text += separator + std::string(field.name) + "=" + std::to_string(value);
        separator = " ";
    }
    return text + "\n";
}

}  // namespace sizing
