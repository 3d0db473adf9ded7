#include "sizing/survey.h"

#include "sizing/curve/exact_curve.h"

namespace sizing {
namespace {

template <class Curve>
Survey Pass(Trace& trace, Curve curve) {
    Totals totals;
    for (auto batch = trace.NextBatch(); !batch.empty(); batch = trace.NextBatch()) {
        for (const Request& request : batch) {
            totals.Add(request);
            curve.Add(request);
        }
    }
    return {totals, curve.Finish(), trace.Report()};
}

}  // namespace

Survey SurveyTrace(const std::vector<std::string>& files, const SurveyOptions& options) {
    Trace trace(files, options.read);
    return options.samples == 0 ? Pass(trace, ExactCurve(options.blockSize))
                                : Pass(trace, SampledCurve(options.blockSize, options.samples));
}

}  // namespace sizing
