// What a cache would count on a trace.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <span>
#include <vector>

#include "sizing/curve/references.h"
#include "sizing/curve/sampled_curve.h"
#include "sizing/miniature/block_sample.h"
#include "sizing/model/cache_model.h"
#include "sizing/request.h"

namespace sizing {

// A cache as it would be created, with its knobs as they would be set.
struct CacheOptions {
    std::uint64_t bytes = 0;
    WriteMode mode = WriteMode::kBack;
    BlockSize blockSize{std::uint64_t{64} << 10U};
    KnobValues knobs;
    std::uint64_t associativity = SlotMap::kAssociativity;
};

struct SimulationOptions {
    static constexpr std::uint64_t kSlots = 65536;

    std::uint64_t mostSlots = kSlots;  // of each cache, that are simulated; ~0: all
    std::uint64_t seed = 0;            // chooses which
    std::uint64_t warmUpRequests = 0;  // that fill the cache and are not counted: it begins warm
};

struct Simulated {
    // As the device would count them; estimates where not all is simulated, of the writes of the SSD's map
    // (metadata_batch, metadata_ssd_writes) rough ones.
    Counters counters;
    std::uint64_t slots = 0;      // of the cache
    double simulatedShare = 1;    // of them; 1: all
    double cachedBlocks = 0;      // at the end
    double dirtyBlocks = 0;       // at the end
    double seconds = 0;           // that the counted requests took by the trace's clock
    double meanDirtyBlocks = 0;   // over that time
    double meanDirtySeconds = 0;  // how long a block that became dirty stayed so
};

// Miniature simulation: the requests for a sample of the blocks go to the model on which a cache device runs,
// with as much fewer slots. Everything is told that the device counts, in any mode and with any knobs.
//
//  A trace of several volumes is taken for one volume on which they lie far apart.
class Miniature {
  public:
    // Throws Failure when the cache has not one block.
    Miniature(const CacheOptions& cache, const SimulationOptions& options);

    void Add(const Request& request);
    [[nodiscard]] Simulated Finish() const;

  private:
    // References to blocks of a kind, of which some are simulated.
    struct Stratum {
        std::uint64_t references = 0;
        std::uint64_t simulated = 0;
        Counters counters;
    };
    static constexpr std::size_t kStrata = 8;

    void MoveTo(std::uint64_t now);
    void CleanExcess();
    void Persist();
    void Access(const Request& request, std::uint64_t length, std::uint64_t base);
    void Discard(const Request& request, std::uint64_t base);
    [[nodiscard]] std::uint64_t BaseOf(std::uint64_t volume) const;
    void CountInto(Counters& counters);
    void BeginCounting();
    [[nodiscard]] Counters Estimate() const;

    BlockSize blockSize_;
    std::uint64_t slots_;
    BlockSample sample_;
    CacheModel model_;
    JustBefore justBefore_;
    std::array<Stratum, kStrata> strata_{};
    Counters cleaning_;  // what requests do not bring about block by block
    std::uint64_t batches_ = 0;
    std::uint64_t warmUpRequests_;
    bool hasBegun_ = false;
    std::uint64_t firstTime_ = 0;
    std::uint64_t firstVolume_ = 0;
    std::uint64_t now_ = 0;  // ns since the first request
    std::uint64_t countedFrom_ = 0;
    double dirtyTime_ = 0;  // dirty blocks times ns
};

// The next requests of a trace, none at its end.
using RequestSource = std::function<std::span<const Request>()>;

// Simulates several caches, each on its own, on a trace that is read once.
std::vector<Simulated> SimulateCaches(const std::vector<CacheOptions>& caches,
                                      const SimulationOptions& options, const RequestSource& next);

}  // namespace sizing
