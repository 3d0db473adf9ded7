// Which cache a trace wants.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "sizing/curve/miss_ratio_curve.h"
#include "sizing/curve/sampled_curve.h"
#include "sizing/miniature/miniature.h"
#include "sizing/trace/report.h"
#include "sizing/trace/totals.h"
#include "sizing/trace/trace.h"

namespace sizing {

struct AdviceOptions {
    ReadOptions read;
    BlockSize blockSize{std::uint64_t{64} << 10U};
    std::size_t samples = SampledCurve::kSamples;  // of the curve; 0: the exact one, and `bytes` in full
    std::uint64_t seed = 0;                        // chooses the sampled blocks
    std::optional<WriteMode> mode;                 // none: the better one is chosen
    std::uint64_t bytes = 0;                       // of the cache that is asked about; 0: its size is chosen
    KnobValues knobs;
    std::function<void(std::uint64_t requests)> progress;  // called now and then; may be empty
};

// What a cache of one size would do.
struct CacheOutlook {
    std::uint64_t bytes = 0;
    WriteMode mode = WriteMode::kBack;
    Simulated simulated;

    [[nodiscard]] std::uint64_t References() const;
    // Shares from 0 to 1; 0 where there is nothing to share.
    [[nodiscard]] double ReadHits() const;
    [[nodiscard]] double WriteHits() const;
    // Of the blocks referred to, those that the volume is neither asked for nor given.
    [[nodiscard]] double Spared() const;
    // Of the blocks written, those that were written again before they went to the volume.
    [[nodiscard]] double Absorbed() const;
    // What goes to the SSD's blocks, metadata left out, when a write is of so many bytes in a block on the
    // average.
    [[nodiscard]] double SsdBytes(double bytesOfWrite, std::uint64_t blockBytes) const;
};

enum class Verdict : std::uint8_t {
    kHelps,
    kNothingReused,  // too few blocks are touched again at all
    kTooLittle,      // they are, but none of the sizes spares the volume much
    kNoRequests,
};

struct Advice {
    Totals totals;
    MissRatioCurve curve;  // of LRU in one large set
    std::uint64_t knee = 0;
    std::vector<CacheOutlook> ladder;  // of the chosen mode, from small to large
    std::vector<CacheOutlook> others;  // of the chosen size, in the other modes that were tried
    CacheOutlook chosen;
    Verdict verdict = Verdict::kNoRequests;
    std::size_t volumes = 0;
    bool isLru = true;  // the caches, as the curve is
    ReadReport report;

    // Bytes that a write has in a block, on the average.
    [[nodiscard]] double BytesOfWrite() const;
    // By the trace's times; 0 where it has none.
    [[nodiscard]] double Days() const;
};

// The size beyond which more brings less and less: where the hit rate lies farthest above the straight line
// from no cache to one that holds all. 0 where nothing ever hits.
std::uint64_t KneeOf(const MissRatioCurve& curve);

// Reads the files once. Throws Failure.
Advice AdviseOnTrace(const std::vector<std::string>& files, const AdviceOptions& options);

}  // namespace sizing
