// All that a trace tells of the cache it wants, in one call.
#pragma once

#include <string>
#include <vector>

#include "sizing/curve/miss_ratio_curve.h"
#include "sizing/curve/sampled_curve.h"
#include "sizing/trace/report.h"
#include "sizing/trace/totals.h"
#include "sizing/trace/trace.h"

namespace sizing {

struct SurveyOptions {
    ReadOptions read;
    BlockSize blockSize{std::uint64_t{64} << 10U};
    std::size_t samples = SampledCurve::kSamples;  // 0: the exact curve
};

struct Survey {
    Totals totals;
    MissRatioCurve curve;
    ReadReport report;
};

// Reads the files once. Throws Failure.
Survey SurveyTrace(const std::vector<std::string>& files, const SurveyOptions& options);

}  // namespace sizing
