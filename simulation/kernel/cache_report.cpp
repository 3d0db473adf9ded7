// What the kernel tells of a cache: its device-mapper table and the files under /proc/flashcache.
#include <fmt/format.h>

#include <algorithm>

#include "simulation/kernel/cache.h"

namespace simulation {

namespace {

const char* ModeText(WriteMode mode) {
    switch (mode) {
        case WriteMode::kThru:
            return "WRITE_THROUGH";
        case WriteMode::kAround:
            return "WRITE_AROUND";
        case WriteMode::kBack:
            break;
    }
    return "WRITE_BACK";
}

}  // namespace

std::string Cache::Table() const {
    const uint64_t kb = superblock_.blockSize / 1024;
    const auto percent = [this](uint64_t count) { return count * 100 / map_.Total(); };
    return fmt::format("0 {} flashcache conf:\n", size_ / 512) +
           fmt::format("\tssd dev ({}), disk dev ({}) cache mode({})\n", ssd_.Path(), space_.Path(),
                       ModeText(superblock_.mode)) +
           fmt::format(
               "\tcapacity({}M), associativity(512), data block size({}K) metadata block size(4096b)\n",
               map_.Total() * kb / 1024, kb) +
           fmt::format("\tSkip sequential thresh({}K)\n", Value(Knob::kSkipSeqThreshKb)) +
           fmt::format("\ttotal blocks({}), cached blocks({}), cache percent({})\n", map_.Total(),
                       map_.Cached(), percent(map_.Cached())) +
           fmt::format("\tdirty blocks({}), dirty percent({})\n", map_.Dirty(), percent(map_.Dirty())) +
           "\tnr_queued(0)\n" +
           fmt::format("\tsplit-io(0) support pin file({})\n", superblock_.version == kVersionNew ? 1 : 0);
}

std::string Cache::Stats() const {
    return model_.Counts().Format(model_.Mode());
}

std::string Cache::Errors() const {
    const Counters& counts = model_.Counts();
    return fmt::format(
        "disk_read_errors={} disk_write_errors={} ssd_read_errors={} ssd_write_errors={} "
        "memory_alloc_errors=0\n"
        "write_disk_sync_errors={}\n",
        counts[Counter::kDiskReadErrors], counts[Counter::kDiskWriteErrors], counts[Counter::kSsdReadErrors],
        counts[Counter::kSsdWriteErrors], syncErrors_);
}

std::string Cache::Progress() const {
    const auto dirty = static_cast<int64_t>(map_.Dirty());
    // What is written while a sync runs adds to it. A sync that found nothing tells nothing about what came
    // later.
    const int64_t initial = initialDirty_ == 0 && dirty > 0 ? -1 : initialDirty_;
    return fmt::format("initial_num_of_dirty={} remaining_num_of_dirty={}\n",
                       initial > 0 ? std::max(initial, dirty) : initial, dirty);
}

}  // namespace simulation
