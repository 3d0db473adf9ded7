#pragma once

#include <array>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "simulation/kernel/clean_pace.h"
#include "simulation/kernel/disk.h"
#include "simulation/kernel/faults.h"
#include "simulation/kernel/model.h"
#include "simulation/kernel/run.h"
#include "simulation/kernel/ssd_map.h"
#include "simulation/kernel/superblock.h"
#include "simulation/kernel/tree.h"

namespace simulation {

// One live cache: an SSD in front of a volume. A write-back cache keeps what is written on the SSD alone,
// dirty, until it is cleaned, that is written back to the volume.
//
//  A disk may fail. What the volume holds as well is read from there and written there when the SSD fails;
// a dirty block is on the SSD alone, so that what concerns it fails with EIO. Failures are counted.
//
//  With the knob cache_all at 0 nothing new enters the cache and every write goes to the volume, so that a
// flush comes to its end under load.
class Cache : public BlockTarget {
  public:
    // Makes a new cache; what the SSD held is gone.
    static std::unique_ptr<Cache> Create(const Superblock& superblock, Disk& ssd, Disk& space, Faults& faults,
                                         const CleanPace& pace);
    // Brings up the cache that lies on the SSD.
    static std::unique_ptr<Cache> Load(const Superblock& superblock, Disk& ssd, Disk& space, Faults& faults,
                                       const CleanPace& pace);

    const Disk& Ssd() const { return ssd_; }
    const Disk& Space() const { return space_; }
    const Superblock& Format() const { return superblock_; }

    uint64_t Size() const override { return size_; }
    void Read(uint64_t offset, std::span<char> into) override;
    void Write(uint64_t offset, std::span<const char> from) override;
    void Discard(uint64_t offset, uint64_t length) override;
    void Sync() override;

    // Follows the volume to its present size.
    void Expand() { size_ = space_.Size(); }
    // Before the cache is removed: cleans it unless fast_remove says to leave the dirty blocks on the SSD.
    void CleanForRemoval();
    // Whether it may be removed: throws where the SSD takes not what a load must find, unless the attribute
    // force-remove gives that up.
    void Settle();
    // Leaves the SSD such that everything can be trusted when it is loaded again.
    void TakeDown();

    std::string KnobText(Knob knob) const { return std::to_string(model_.Knobs()[knob]) + "\n"; }
    // Takes what was written to a knob's file; an errno, 0 done.
    int SetKnob(Knob knob, std::string_view text);
    std::string Attribute() const { return forceRemove_ ? "force-remove\n" : "none\n"; }
    int SetAttribute(std::string_view text);

    // Cleans what is due now.
    void Work();
    // How long, in milliseconds, until Work() has something to do; -1: not before a request comes.
    int WorkWaitMs();
    // Cleans up to that many blocks, whatever the knobs say; returns how many are done.
    uint64_t CleanBlocks(uint64_t count);
    uint64_t DirtyBlocks() const { return map_.Dirty(); }

    std::string Table() const;
    std::string Stats() const;
    std::string Errors() const;
    std::string Progress() const;
    // Makes the kernel report that many failed write-backs.
    void ReportErrors(uint64_t count) { syncErrors_ = count; }

    // Puts the cache into a state that another kernel told of, without what setting it would set off. False
    // where such a state cannot be told: a knob's value or, of counts, a text without the one in question.
    bool SeedKnob(Knob knob, std::string_view text);
    bool SeedStats(std::string_view text);
    bool SeedErrors(std::string_view text);
    bool SeedProgress(std::string_view text);

  private:
    using Clock = CleanPace::Clock;
    using Slot = SlotMap::Slot;
    using Test = std::function<bool(const Step&)>;

    // A request at work: its steps, and the memory that it fills or takes.
    struct Job {
        std::vector<Step> steps;
        uint64_t offset = 0;
        std::span<char> memory;
        bool failed = false;
    };

    Cache(const Superblock& superblock, Disk& ssd, Disk& space, Faults& faults, const CleanPace& pace);

    uint64_t SpaceOffset(const Piece& piece) const {
        return piece.block * superblock_.blockSize + piece.offset;
    }
    int32_t Value(Knob knob) const { return model_.Knobs()[knob]; }
    void Count(Counter counter, uint64_t count = 1) { model_.Count(counter, count); }
    // Whether some work with a disk went well; a failure is counted.
    bool Went(Counter errors, const std::function<void()>& work);

    std::span<char> PartOf(const Job& job, const Step& step) const;
    std::span<char> WholeOf(const Job& job, const Step& step);
    std::vector<Run> RunsOnSsd(Job& job, const Test& wanted);
    std::vector<Run> RunsOnSpace(Job& job, const Test& wanted, const Test& whole);
    void ReadSsd(Job& job);
    void ReadSpace(Job& job);
    void FetchRests(Job& job);
    bool PrepareSlots(Job& job);
    void WriteSsd(Job& job, const Test& wanted);
    void WriteSpace(Job& job);
    void GiveUpSlot(Step& step);
    void Undo(Job& job);
    void Persist();

    void BeginSync();
    void CleanAfterWrite();
    void CleanExcess(uint64_t most);
    void CleanFallow();
    uint64_t Clean(uint64_t most, const std::function<std::optional<Cleaning::Due>()>& due);
    void PersistCleaned(uint64_t cleaned);
    Cleaning::Batch OldestIn(Cleaning::Set set, uint64_t most) const;
    bool CleanBatch(const Cleaning::Batch& batch);
    bool GiveUp(Slot slot);

    Superblock superblock_;
    Disk& ssd_;
    Disk& space_;
    Faults& faults_;
    const CleanPace& pace_;
    uint64_t size_;
    CacheModel model_;
    SlotMap& map_ = model_.Slots();
    SsdMap ssdMap_;
    std::array<std::vector<char>, 2> edges_;  // the blocks at a request's ends that it is not of as a whole
    std::vector<char> cleaned_;

    bool forceRemove_ = false;
    bool syncing_ = false;
    int64_t initialDirty_ = -1;
    uint64_t syncErrors_ = 0;
    Clock::time_point lastCleaned_;
    Clock::time_point stalledUntil_;
};

}  // namespace simulation
