#pragma once

#include <cstdint>
#include <unordered_set>

#include "base/unique_fd.h"

namespace simulation {

// What a power cut can take from a disk with a volatile cache: of each block that was written since the
// disk's last flush, what it held then. It lies in a file, there before the block is overwritten, so that the
// appliance may be killed at any moment; the next boot takes some of the writes back.
class Unflushed {
  public:
    // Begins anew in `file`; `seed` chooses what a power cut will take.
    Unflushed(base::UniqueFd file, uint64_t seed);

    // Keeps what a range of the disk holds, which is about to be written.
    void Keep(int disk, uint64_t offset, uint64_t length);
    // The disk was flushed: nothing can be taken any more.
    void Forget();

    // Undoes a random part of the writes that `file` knows of, and empties it.
    static void TakeBack(int file, int disk);

  private:
    base::UniqueFd file_;
    std::unordered_set<uint64_t> blocks_;
};

}  // namespace simulation
