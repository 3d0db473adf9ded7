// Traces of all formats, compressed or not: anything ends, in order or with a message, and no request is
// beyond the end of a volume's addresses.
#include "sizing/trace/trace.h"
#include "fuzz/target.h"
#include "sizing/failure.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const fuzz::MemoryFile file(fuzz::TextOf(data, size));
    try {
        sizing::Trace trace({file.Path()}, {});
        for (auto batch = trace.NextBatch(); !batch.empty(); batch = trace.NextBatch()) {
            for (const sizing::Request& request : batch) {
                fuzz::Require(request.length <= UINT64_MAX - request.offset, "a request ends below 2^64");
            }
        }
    } catch (const sizing::Failure&) {
        return 0;  // told
    }
    return 0;
}
