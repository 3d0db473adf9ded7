// All that a report tells, as it was read: names as they are.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "doctor/facts.h"
#include "doctor/finding.h"
#include "doctor/mutes.h"
#include "report/item.h"
#include "report/sample.h"

namespace cli {

struct Collected {
    std::int64_t time = 0;  // seconds since 1970
    double seconds = 0;     // of the sampled statistics
    std::string host;
    std::string kernel;   // its release
    std::string machine;  // "x86_64"
    std::string library;  // the file that is loaded
    Facts facts;
    std::vector<Finding> findings;
    std::vector<Mute> mutes;
    std::map<std::string, std::uint64_t> ssdBytes;  // by path, of those that are there
    std::map<std::string, std::string> mounts;      // folders, with the cache device that lies there
    std::vector<ReportItem> items;                  // what was read and run, in this order
    std::vector<ReportSample> samples;
    std::vector<std::string> log;     // the lines of the library, its tools and the kernel
    std::vector<std::string> unmade;  // parts that are missing altogether, and why
};

// How far it has come: what is done now, and the share of all that is over.
using TellStep = std::function<void(const std::string& step, double share)>;

struct CollectOptions {
    double seconds = 3;    // of the sampled statistics
    double patience = 20;  // how long what does not answer is waited for, in seconds
};

// Reads all of it; nothing that cannot be read keeps the rest from being read.
Collected Collect(const CollectOptions& options, const TellStep& tell);

}  // namespace cli
