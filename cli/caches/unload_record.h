// What the tool keeps of a volume from the unloading of its cache to the next loading, so that a volume that
// was written without its cache meanwhile is seen: the blocks on the SSD are stale then.
#pragma once

#include <string>

#include "caches/inventory.h"

namespace cli {

// Keeps what SSD and volume look like now. Without room for the record, loading will not know.
void RecordUnload(const Cache& cache);

void ForgetUnload(const Cache& cache);

struct SinceUnload {
    enum class Volume {
        kUnknown,  // this tool did not unload it, or another used it since, or a device cannot be read
        kSame,  // nothing was seen to be written: not at its ends, where file systems note each mount, nor in
                // samples
        kWritten,
    };
    Volume volume = Volume::kUnknown;
    std::string when;  // "2026-05-01 12:00:00"; empty: not known
};

// What became of the volume of a cache that is not up.
SinceUnload LookSinceUnload(const Cache& cache);

}  // namespace cli
