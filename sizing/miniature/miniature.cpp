#include "sizing/miniature/miniature.h"

#include <algorithm>
#include <deque>
#include <iterator>
#include <utility>

#include "sizing/failure.h"
#include "sizing/hash.h"
#include "sizing/trace/totals.h"

namespace sizing {
namespace {

constexpr std::uint64_t kLatest = std::uint64_t{1} << 62U;  // ns; what is added to it stays below 2^64

std::uint64_t SlotsOf(const CacheOptions& cache) {
    const std::uint64_t slots = cache.bytes / cache.blockSize.Bytes();
    if (slots == 0) {
        throw Failure("a cache of " + std::to_string(cache.bytes) + " bytes cannot be simulated",
                      "it has no block of " + std::to_string(cache.blockSize.Bytes()) + " bytes", "");
    }
    return slots;
}

// One slot of so many is simulated.
std::uint64_t ScaleOf(std::uint64_t slots, std::uint64_t mostSlots) {
    constexpr std::uint64_t kMost = std::uint64_t{1} << 31U;  // the model numbers them in 32 bits
    const std::uint64_t most = std::clamp<std::uint64_t>(mostSlots, 1, kMost);
    return (slots - 1) / most + 1;
}

std::size_t StratumOf(Kind kind, bool isAgain, bool bypass) {
    return (kind == Kind::kWrite ? 4U : 0U) + (bypass ? 2U : 0U) + (isAgain ? 1U : 0U);
}

}  // namespace

Miniature::Miniature(const CacheOptions& cache, const SimulationOptions& options)
    : blockSize_(cache.blockSize),
      slots_(SlotsOf(cache)),
      sample_(ScaleOf(slots_, options.mostSlots), options.seed),
      model_({cache.mode, static_cast<std::uint32_t>(cache.blockSize.Bytes()), slots_ / sample_.Neighbours(),
              cache.associativity}),
      warmUpRequests_(options.warmUpRequests) {
    for (std::size_t knob = 0; knob < kKnobs.size(); ++knob) {
        model_.SetKnob(static_cast<Knob>(knob), cache.knobs[static_cast<Knob>(knob)]);
    }
}

void Miniature::Add(const Request& request) {
    if (!std::exchange(hasBegun_, true)) {
        firstTime_ = request.time;
        firstVolume_ = request.volume;
    }
    const std::uint64_t time = request.time - std::min(request.time, firstTime_);
    MoveTo(std::clamp(time, now_, std::max(now_, kLatest)));
    const std::uint64_t base = BaseOf(request.volume);
    const std::uint64_t length = std::min(request.length, kLongestRequest);
    if (IsCached(request.kind) && length > 0) {
        Access(request, length, base);
    } else if (request.kind == Kind::kDiscard && request.length > 0) {
        Discard(request, base);
        Persist();
    } else if (request.kind == Kind::kFlush) {
        Persist();
    }
    if (warmUpRequests_ == 1) {
        BeginCounting();
    }
    warmUpRequests_ -= warmUpRequests_ > 0 ? 1 : 0;
}

// A block of a volume: its number there behind the base of the volume, of which none can be near another by
// more than chance.
std::uint64_t Miniature::BaseOf(std::uint64_t volume) const {
    return volume == firstVolume_ ? 0 : Mix(volume) / SlotMap::kNeighbours * SlotMap::kNeighbours;
}

void Miniature::Access(const Request& request, std::uint64_t length, std::uint64_t base) {
    const bool isBypass = model_.IsLongStream((base << blockSize_.Shift()) + request.offset, length);
    const std::uint64_t end = request.offset + length;
    for (std::uint64_t offset = request.offset; offset < end;) {
        Step step;
        step.piece = model_.PieceAt(offset, end - offset);
        offset += step.piece.length;
        step.piece.block += base;
        const bool isAgain = !sample_.IsAll() && justBefore_.Touch(Mix(step.piece.block * kSpread));
        Stratum& stratum = strata_[StratumOf(request.kind, isAgain, isBypass)];
        ++stratum.references;
        if (const auto block = sample_.Find(step.piece.block)) {
            step.piece.block = *block;
            ++stratum.simulated;
            request.kind == Kind::kRead ? model_.ReadPiece(step, isBypass)
                                        : model_.WritePiece(step, isBypass, now_);
            CountInto(stratum.counters);
        }
    }
    CleanExcess();
}

// As a device does after each write.
void Miniature::CleanExcess() {
    bool isAny = false;
    while (const auto due = model_.Cleaner().Excess()) {
        model_.MarkCleaned(model_.Cleaner().Oldest(due->set, due->blocks));
        isAny = true;
    }
    if (isAny) {
        Persist();
    }
}

void Miniature::MoveTo(std::uint64_t now) {
    const auto pass = [&](std::uint64_t until) {
        dirtyTime_ += static_cast<double>(model_.Slots().Dirty()) * static_cast<double>(until - now_);
        now_ = until;
    };
    for (auto at = model_.Cleaner().FallowAt(); at && *at <= now; at = model_.Cleaner().FallowAt()) {
        pass(std::max(*at, now_));
        const std::vector<SlotMap::Slot> fallow = model_.Cleaner().TakeFallow(now_);
        for (const SlotMap::Slot slot : fallow) {
            model_.MarkCleaned({slot, 1});
        }
        model_.Count(Counter::kFallowCleanings, fallow.size());
        if (!fallow.empty()) {
            Persist();
        }
    }
    pass(now);
}

void Miniature::Persist() {
    const std::uint64_t pages = model_.Slots().ForgetChanges();
    model_.Count(Counter::kMetadataSsdWrites, pages);
    batches_ += pages > 0 ? 1 : 0;
    CountInto(cleaning_);
}

// Where all is simulated there is nothing to tell apart.
void Miniature::CountInto(Counters& counters) {
    if (!sample_.IsAll()) {
        counters += std::exchange(model_.Counts(), {});
    }
}

void Miniature::Discard(const Request& request, std::uint64_t base) {
    const std::uint64_t end = request.offset + request.length;
    const auto drop = [&](std::uint64_t offset) {
        Step step;
        step.piece = model_.PieceAt(offset, end - offset);
        if (const auto block = sample_.Find(base + step.piece.block)) {
            step.piece.block = *block;
            model_.DiscardPiece(step);
        }
    };
    if (request.length >> blockSize_.Shift() <= model_.Slots().Total()) {
        for (std::uint64_t offset = request.offset; offset < end;
             offset += model_.PieceAt(offset, end - offset).length) {
            drop(offset);
        }
        return;
    }
    for (SlotMap::Slot slot = 0; slot < model_.Slots().Total(); ++slot) {
        const std::uint64_t block = sample_.BlockOf(model_.Slots().BlockOf(slot)) - base;
        const std::uint64_t first = request.offset >> blockSize_.Shift();
        if (model_.Slots().IsUsed(slot) && block >= first && block <= (end - 1) >> blockSize_.Shift()) {
            drop(std::max(request.offset, block << blockSize_.Shift()));
        }
    }
}

void Miniature::BeginCounting() {
    strata_ = {};
    model_.Counts().Reset();
    cleaning_.Reset();
    batches_ = 0;
    dirtyTime_ = 0;
    countedFrom_ = now_;
}

// Of the references that are simulated, those of a stratum speak for all that there were in it (a ratio
// estimator): a few blocks have most of the references, and are among the sampled ones or not, but they are
// touched again and again, and are parted from the others by that.
Counters Miniature::Estimate() const {
    Counters sum = model_.Counts();
    if (sample_.IsAll()) {
        return sum;
    }
    sum = cleaning_;
    sum.Scale(static_cast<double>(sample_.Neighbours()));
    for (std::size_t i = 0; i < kStrata; ++i) {
        const Stratum& one = strata_[i];
        const Stratum& other = strata_[i ^ 1U];
        // One of which none is simulated is as its sibling.
        const double references = static_cast<double>(one.references) +
                                  (other.simulated == 0 ? static_cast<double>(other.references) : 0);
        if (one.simulated > 0) {
            Counters counters = one.counters;
            counters.Scale(references / static_cast<double>(one.simulated));
            sum += counters;
        }
    }
    return sum;
}

Simulated Miniature::Finish() const {
    constexpr double kSecond = 1e9;
    const auto scale = static_cast<double>(sample_.Neighbours());
    Simulated result;
    if (warmUpRequests_ == 0) {
        result.counters = Estimate();
        result.counters.Add(Counter::kMetadataBatch, batches_);
    }
    result.slots = slots_;
    result.simulatedShare = 1 / scale;
    result.cachedBlocks = static_cast<double>(model_.Slots().Cached()) * scale;
    result.dirtyBlocks = static_cast<double>(model_.Slots().Dirty()) * scale;
    const auto time = static_cast<double>(now_ - countedFrom_);
    result.seconds = time / kSecond;
    result.meanDirtyBlocks = time > 0 ? dirtyTime_ / time * scale : result.dirtyBlocks;
    const std::uint64_t dirties = result.counters[Counter::kMetadataDirties];
    result.meanDirtySeconds = dirties > 0 ? dirtyTime_ * scale / static_cast<double>(dirties) / kSecond : 0;
    return result;
}

std::vector<Simulated> SimulateCaches(const std::vector<CacheOptions>& caches,
                                      const SimulationOptions& options, const RequestSource& next) {
    std::deque<Miniature> simulations;
    for (const CacheOptions& cache : caches) {
        simulations.emplace_back(cache, options);
    }
    for (auto batch = next(); !batch.empty(); batch = next()) {
        for (Miniature& simulation : simulations) {
            for (const Request& request : batch) {
                simulation.Add(request);
            }
        }
    }
    std::vector<Simulated> results;
    std::ranges::transform(simulations, std::back_inserter(results), &Miniature::Finish);
    return results;
}

}  // namespace sizing
