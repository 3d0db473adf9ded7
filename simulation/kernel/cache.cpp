#include "simulation/kernel/cache.h"

#include <cerrno>
#include <system_error>

namespace simulation {

namespace {

[[noreturn]] void ThrowIo(const std::string& what) {
    throw std::system_error(EIO, std::generic_category(), what);
}

}  // namespace

std::unique_ptr<Cache> Cache::Create(const Superblock& superblock, Disk& ssd, Disk& space, Faults& faults,
                                     const CleanPace& pace) {
    std::unique_ptr<Cache> cache(new Cache(superblock, ssd, space, faults, pace));
    ssd.Punch(kMapOffset, superblock.DataOffset() - kMapOffset);
    WriteSuperblock(ssd, cache->superblock_);
    return cache;
}

std::unique_ptr<Cache> Cache::Load(const Superblock& superblock, Disk& ssd, Disk& space, Faults& faults,
                                   const CleanPace& pace) {
    std::unique_ptr<Cache> cache(new Cache(superblock, ssd, space, faults, pace));
    cache->ssdMap_.Load(superblock.clean != 0);
    cache->model_.Cleaner().Reset(pace.Nanoseconds());  // what is loaded dirty does not lie fallow at once
    cache->superblock_.clean = 0;
    WriteSuperblock(ssd, cache->superblock_);
    return cache;
}

Cache::Cache(const Superblock& superblock, Disk& ssd, Disk& space, Faults& faults, const CleanPace& pace)
    : superblock_(superblock),
      ssd_(ssd),
      space_(space),
      faults_(faults),
      pace_(pace),
      size_(space.Size()),
      model_({superblock.mode, superblock.blockSize, superblock.slots}),
      ssdMap_(map_, ssd),
      edges_{std::vector<char>(superblock.blockSize), std::vector<char>(superblock.blockSize)} {}

bool Cache::Went(Counter errors, const std::function<void()>& work) {
    try {
        work();
        return true;
    } catch (const std::system_error&) {
        Count(errors);
        return false;
    }
}

void Cache::Read(uint64_t offset, std::span<char> into) {
    Job job{model_.Read(offset, into.size()), offset, into};
    ReadSsd(job);
    ReadSpace(job);
    if (job.failed) {
        Undo(job);
        ThrowIo(superblock_.name);
    }
    if (PrepareSlots(job)) {
        WriteSsd(job, [](const Step& step) { return step.isNew; });
    }
}

void Cache::Write(uint64_t offset, std::span<const char> from) {
    // Read alone; readv and writev know one kind of memory.
    Job job{model_.Write(offset, from.size(), pace_.Nanoseconds()),
            offset,
            {const_cast<char*>(from.data()), from.size()}};
    FetchRests(job);
    if (job.failed) {
        Undo(job);
        ThrowIo(superblock_.name);
    }
    PrepareSlots(job);
    WriteSsd(job, [](const Step& step) { return step.slot.has_value(); });
    WriteSpace(job);
    if (job.failed) {
        ThrowIo(superblock_.name);
    }
    CleanAfterWrite();
}

void Cache::Discard(uint64_t offset, uint64_t length) {
    if (!Went(Counter::kDiskWriteErrors, [&] { space_.Punch(offset, length); })) {
        ThrowIo(space_.Path());
    }
    bool failed = false;
    for (Step& step : model_.Discard(offset, length)) {
        if (!step.slot) {
            continue;
        }
        const std::vector<char> zeros(step.piece.length);
        const uint64_t place = superblock_.SlotOffset(*step.slot) + step.piece.offset;
        if (!Went(Counter::kSsdWriteErrors, [&] { ssd_.Write(place, zeros); })) {
            failed = failed || step.wasDirty;
            if (!step.wasDirty) {
                GiveUpSlot(step);
            }
        }
    }
    Persist();  // or a block that comes back in another slot could have two after a crash
    if (failed) {
        ThrowIo(ssd_.Path());
    }
}

void Cache::Sync() {
    Persist();
    space_.DropCache();
}

// An SSD that fails is no harm while nothing is dirty, as it was last heard of: all is on the volume.
void Cache::Persist() {
    if (!Went(Counter::kDiskWriteErrors, [&] { space_.Flush(); })) {
        ThrowIo(space_.Path());
    }
    size_t pages = 0;
    if (!Went(Counter::kSsdWriteErrors, [&] { pages = ssdMap_.Persist(); }) && ssdMap_.Matters()) {
        ThrowIo(ssd_.Path());
    }
    if (pages > 0) {
        Count(Counter::kMetadataSsdWrites, pages);
        Count(Counter::kMetadataBatch);
    }
    ssd_.DropCache();
}

void Cache::Settle() {
    if (!forceRemove_) {
        Persist();
    }
}

void Cache::TakeDown() {
    Persist();
    superblock_.clean = 1;
    WriteSuperblock(ssd_, superblock_);
    space_.DropCache();
}

}  // namespace simulation
