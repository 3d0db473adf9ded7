#include "sizing/advice/advice.h"

#include <algorithm>
#include <cmath>
#include <deque>

#include "sizing/curve/exact_curve.h"
#include "sizing/failure.h"

namespace sizing {
namespace {

constexpr std::uint64_t kSmallest = std::uint64_t{64} << 20U;
constexpr std::uint64_t kLargest = std::uint64_t{16} << 40U;
constexpr std::uint64_t kLadderSlots = 4096;  // that are simulated of each size

// What must be spared for a cache to be worth its SSD, and by how much write-back must be better than a mode
// that leaves nothing on the SSD alone.
constexpr double kWorthwhile = 0.05;
constexpr double kWorthRisk = 0.05;
// Of what the best size spares: more than this costs more and more room for less and less.
constexpr double kNearlyAll = 0.9;

std::vector<WriteMode> ModesToTry(const AdviceOptions& options) {
    return options.mode ? std::vector{*options.mode}
                        : std::vector{WriteMode::kBack, WriteMode::kThru, WriteMode::kAround};
}

// Powers of two, in every mode, without the one that is asked about.
std::vector<CacheOptions> Ladder(const AdviceOptions& options) {
    std::vector<CacheOptions> caches;
    for (const WriteMode mode : ModesToTry(options)) {
        for (std::uint64_t bytes = kSmallest; bytes <= kLargest; bytes *= 2) {
            if (bytes != options.bytes) {
                caches.push_back({bytes, mode, options.blockSize, options.knobs});
            }
        }
    }
    return caches;
}

// In full each slot takes some 50 bytes.
void RequireFullSizeFits(const AdviceOptions& options) {
    constexpr std::uint64_t kMostSlots = std::uint64_t{1} << 25U;
    const std::uint64_t slots = options.bytes >> options.blockSize.Shift();
    if (options.samples == 0 && slots > kMostSlots) {
        throw Failure("a cache of " + std::to_string(slots) + " blocks cannot be simulated in full",
                      "the most that memory is taken for is " + std::to_string(kMostSlots) + " blocks",
                      "the same without --exact simulates a sample of them");
    }
}

std::vector<CacheOptions> Asked(const AdviceOptions& options) {
    std::vector<CacheOptions> caches;
    for (const WriteMode mode : ModesToTry(options)) {
        if (options.bytes > 0) {
            caches.push_back({options.bytes, mode, options.blockSize, options.knobs});
        }
    }
    return caches;
}

// Gives each request to all that want to see it.
class Pass {
  public:
    Pass(const AdviceOptions& options, Trace& trace) : options_(options), trace_(trace) {
        const SimulationOptions sampled{.mostSlots = kLadderSlots, .seed = options.seed};
        SimulationOptions asked{.seed = options.seed};
        asked.mostSlots = options.samples == 0 ? ~std::uint64_t{0} : asked.mostSlots;
        Prepare(Ladder(options), sampled);
        Prepare(Asked(options), asked);
    }

    template <class Curve>
    void Run(Curve& curve, Totals& totals) {
        std::uint64_t requests = 0;
        for (auto batch = trace_.NextBatch(); !batch.empty(); batch = trace_.NextBatch()) {
            for (const Request& request : batch) {
                totals.Add(request);
                AddToCurve(curve, request);
            }
            // Each in turn, so that what it looks at stays near the processor.
            for (Miniature& miniature : miniatures_) {
                for (const Request& request : batch) {
                    miniature.Add(request);
                }
            }
            constexpr std::uint64_t kNowAndThen = std::uint64_t{1} << 18U;
            const bool isTime = requests / kNowAndThen != (requests + batch.size()) / kNowAndThen;
            requests += batch.size();
            if (isTime && options_.progress) {
                options_.progress(requests);
            }
        }
    }

    [[nodiscard]] std::vector<CacheOutlook> Finish() const {
        std::vector<CacheOutlook> outlooks;
        outlooks.reserve(caches_.size());
        for (std::size_t i = 0; i < caches_.size(); ++i) {
            outlooks.push_back({caches_[i].bytes, caches_[i].mode, miniatures_[i].Finish()});
        }
        return outlooks;
    }

  private:
    void Prepare(const std::vector<CacheOptions>& caches, const SimulationOptions& options) {
        for (const CacheOptions& cache : caches) {
            miniatures_.emplace_back(cache, options);
            caches_.push_back(cache);
        }
    }
    // Another seed gives volumes other names, and with that blocks other hashes.
    template <class Curve>
    void AddToCurve(Curve& curve, Request request) const {
        request.volume = options_.seed == 0 ? request.volume : Mix(request.volume ^ options_.seed);
        curve.Add(request);
    }

    const AdviceOptions& options_;
    Trace& trace_;
    std::vector<CacheOptions> caches_;
    std::deque<Miniature> miniatures_;  // which cannot be moved
};

std::vector<CacheOutlook> OfMode(const std::vector<CacheOutlook>& outlooks, WriteMode mode) {
    std::vector<CacheOutlook> some;
    std::copy_if(outlooks.begin(), outlooks.end(), std::back_inserter(some),
                 [&](const CacheOutlook& outlook) { return outlook.mode == mode; });
    std::sort(some.begin(), some.end(),
              [](const CacheOutlook& a, const CacheOutlook& b) { return a.bytes < b.bytes; });
    return some;
}

// The smallest that spares nearly as much as any.
const CacheOutlook& Enough(const std::vector<CacheOutlook>& ladder) {
    double most = 0;
    for (const CacheOutlook& outlook : ladder) {
        most = std::max(most, outlook.Spared());
    }
    return *std::find_if(ladder.begin(), ladder.end(),
                         [&](const CacheOutlook& outlook) { return outlook.Spared() >= most * kNearlyAll; });
}

// Write-back puts data at risk: it must be worth it. Of the others the one that spares more, and of those
// that are alike the one that wears the SSD less.
bool IsBetter(const CacheOutlook& one, const CacheOutlook& other) {
    const double risk =
        (one.mode == WriteMode::kBack ? kWorthRisk : 0) - (other.mode == WriteMode::kBack ? kWorthRisk : 0);
    const double gain = one.Spared() - other.Spared() - risk;
    constexpr double kAlike = 0.01;
    return std::abs(gain) > kAlike
               ? gain > 0
               : one.simulated.counters[Counter::kSsdWrites] < other.simulated.counters[Counter::kSsdWrites];
}

Verdict Judge(const Advice& advice) {
    if (advice.chosen.References() == 0) {
        return Verdict::kNoRequests;
    }
    if (advice.chosen.Spared() >= kWorthwhile) {
        return Verdict::kHelps;
    }
    const double best = 1 - advice.curve.MissRatio(kLargest);
    return best < kWorthwhile ? Verdict::kNothingReused : Verdict::kTooLittle;
}

// The sizes worth a look: those that hold all that is touched are alike, and the first of them is the last.
std::vector<CacheOutlook> LadderOf(const std::vector<CacheOutlook>& outlooks, WriteMode mode,
                                   const MissRatioCurve& curve, std::uint64_t asked) {
    std::vector<CacheOutlook> ladder = OfMode(outlooks, mode);
    const auto all = std::max(static_cast<std::uint64_t>(curve.Touched().touched), asked);
    while (ladder.size() > 1 && ladder[ladder.size() - 2].bytes >= all) {
        ladder.pop_back();
    }
    return ladder;
}

void Choose(Advice& advice, const std::vector<CacheOutlook>& outlooks, const AdviceOptions& options) {
    std::vector<CacheOutlook> candidates;
    for (const WriteMode mode : ModesToTry(options)) {
        const auto ladder = LadderOf(outlooks, mode, advice.curve, options.bytes);
        const auto asked = std::find_if(ladder.begin(), ladder.end(), [&](const CacheOutlook& outlook) {
            return outlook.bytes == options.bytes;
        });
        candidates.push_back(asked == ladder.end() ? Enough(ladder) : *asked);
    }
    advice.chosen = *std::min_element(candidates.begin(), candidates.end(), IsBetter);
    advice.ladder = LadderOf(outlooks, advice.chosen.mode, advice.curve, options.bytes);
    for (const CacheOutlook& outlook : outlooks) {
        if (outlook.bytes == advice.chosen.bytes && outlook.mode != advice.chosen.mode) {
            advice.others.push_back(outlook);
        }
    }
}

}  // namespace

std::uint64_t KneeOf(const MissRatioCurve& curve) {
    constexpr int kSizes = 1000;
    const double all = curve.Touched().touched;
    const double most = 1 - curve.MissRatio(static_cast<std::uint64_t>(all) + curve.Blocks().Bytes());
    double knee = 0;
    double farthest = 0;
    for (int i = 1; i <= kSizes && most > 0; ++i) {
        const double part = static_cast<double>(i) / kSizes;
        const double above = (1 - curve.MissRatio(static_cast<std::uint64_t>(part * all))) / most - part;
        if (knee == 0 || above > farthest + 1e-9) {
            knee = part * all;
            farthest = above;
        }
    }
    // Of a loop no size below all of it is of any use.
    return static_cast<std::uint64_t>(farthest > 0.01 ? knee : most > 0 ? all : 0);
}

Advice AdviseOnTrace(const std::vector<std::string>& files, const AdviceOptions& options) {
    RequireFullSizeFits(options);
    Trace trace(files, options.read);
    Pass pass(options, trace);
    Totals totals;
    const auto finish = [&](auto curve) {
        pass.Run(curve, totals);
        return curve.Finish();
    };
    Advice advice{.totals = {},
                  .curve = options.samples == 0 ? finish(ExactCurve(options.blockSize))
                                                : finish(SampledCurve(options.blockSize, options.samples)),
                  .ladder = {},
                  .others = {},
                  .chosen = {},
                  .report = {}};
    advice.totals = totals;
    advice.report = trace.Report();
    advice.volumes = trace.Volumes().Names().size();
    advice.isLru = options.knobs[Knob::kReclaimPolicy] == kReclaimLru;
    advice.knee = KneeOf(advice.curve);
    Choose(advice, pass.Finish(), options);
    advice.verdict = Judge(advice);
    return advice;
}

}  // namespace sizing
