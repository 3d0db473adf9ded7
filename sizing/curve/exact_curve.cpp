#include "sizing/curve/exact_curve.h"

#include <algorithm>
#include <utility>

namespace sizing {
namespace {

constexpr std::size_t kFirstBlocks = 4096;

}  // namespace

ExactCurve::ExactCurve(BlockSize blockSize, std::uint64_t mostBlocks)
    : blockSize_(blockSize),
      mostBlocks_(std::min(mostBlocks, Recency::kMostUses / 4)),
      stack_(kFirstBlocks) {}

void ExactCurve::Add(const Request& request) {
    std::uint64_t blocks = 0;
    ForEachBlock(request, blockSize_, [&](std::uint64_t key) {
        ++blocks;
        const LruStack::Touched touched = stack_.Touch(key);
        if (touched.touches > 1) {
            distances_.Add(touched.distance, request.kind, 1);
        }
    });
    references_.Of(request.kind) += static_cast<double>(blocks);
    if (stack_.Blocks() > mostBlocks_) {
        throw Failure("there is no memory for an exact curve",
                      "the trace touches more than " + std::to_string(mostBlocks_) + " blocks of " +
                          std::to_string(blockSize_.Bytes()) +
                          " bytes; a sampled curve takes the same memory for any",
                      "");
    }
}

MissRatioCurve ExactCurve::Finish() {
    const auto bytes = static_cast<double>(blockSize_.Bytes());
    const WorkingSet workingSet{static_cast<double>(stack_.Blocks()) * bytes,
                                static_cast<double>(stack_.Reused()) * bytes};
    return {blockSize_, std::move(distances_), references_, workingSet};
}

}  // namespace sizing
