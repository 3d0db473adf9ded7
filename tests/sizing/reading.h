// Reading traces in tests.
#pragma once

#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "sizing/failure.h"
#include "sizing/trace/trace.h"
#include "support/private_folder.h"

namespace sizing {

// A request with the name of its volume.
struct Told {
    std::uint64_t time;
    std::string volume;
    std::uint64_t offset;
    std::uint64_t length;
    Kind kind;

    bool operator==(const Told&) const = default;
};

inline void PrintTo(const Told& told, std::ostream* out) {
    *out << told.time << " ns, " << told.volume << ", " << told.offset << " + " << told.length << ", kind "
         << static_cast<int>(told.kind);
}

struct Reading {
    std::vector<Told> requests;
    ReadReport report;
};

inline Reading ReadFiles(const std::vector<std::string>& files, const ReadOptions& options = {}) {
    Trace trace(files, options);
    Reading reading;
    for (auto batch = trace.NextBatch(); !batch.empty(); batch = trace.NextBatch()) {
        for (const Request& request : batch) {
            reading.requests.push_back({request.time, trace.Volumes().NameOf(request.volume), request.offset,
                                        request.length, request.kind});
        }
    }
    reading.report = trace.Report();
    return reading;
}

inline Reading ReadBytes(std::string_view bytes, const ReadOptions& options = {}) {
    const PrivateFolder folder;
    WriteText(folder / "trace", bytes);
    return ReadFiles({folder / "trace"}, options);
}

// What the failure says when it is read: what, why and next.
inline std::string FailureOf(const std::vector<std::string>& files, const ReadOptions& options = {}) {
    try {
        ReadFiles(files, options);
    } catch (const Failure& failure) {
        return std::string(failure.what()) + "; " + failure.why + "; " + failure.next;
    }
    return "";
}

}  // namespace sizing
