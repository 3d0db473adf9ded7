#pragma once

#include <set>
#include <vector>

#include "simulation/kernel/disk.h"
#include "simulation/kernel/model.h"

namespace simulation {

// The map that lies on an SSD: what a load finds of a SlotMap, which is ahead of it until Persist(). Before
// anything is written to it the volume must be flushed, as what it calls clean is read from there.
//
//  A slot that it calls dirty is given to another block only after CallFree(), so that data of one block is
// never found under the number of another after a crash. Clean slots need no such care: they are forgotten
// when the cache was not taken down in order.
class SsdMap {
  public:
    using Slot = SlotMap::Slot;

    SsdMap(SlotMap& slots, Disk& ssd) : slots_(slots), ssd_(ssd), callsDirty_(slots.Total()) {}

    void Load(bool keepClean);
    // On return a power cut takes nothing of what is on the SSD; returns the number of pages written.
    size_t Persist();
    bool CallsDirty(Slot slot) const { return callsDirty_[slot]; }
    // Calls these slots free, whose data is not written yet, where it calls one of them dirty.
    void CallFree(const std::set<Slot>& unwritten);
    // Whether it must be right, now or at the next load: something is dirty or is called so.
    bool Matters() const;

  private:
    using Pages = std::set<uint64_t>;

    void WritePages(const Pages& pages, const std::set<Slot>& unwritten);
    // The first slot that lies on no such page.
    Slot EndOf(uint64_t page) const;

    SlotMap& slots_;
    Disk& ssd_;
    std::vector<bool> callsDirty_;
};

}  // namespace simulation
