// What is wrong with the caches, for every verb that tells of it:
//
//     const Facts facts = GatherFacts();
//     const std::vector<Finding> findings = Diagnose(facts);
//
// GatherFacts reads, once, and does not fail: what it could not read stands among the facts. Diagnose judges
// the facts alone. Whoever wants the mutes of the admin to count calls ApplyMutes (doctor/mutes.h) then.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "doctor/check.h"
#include "doctor/facts.h"
#include "doctor/finding.h"

namespace cli {

struct GatherOptions {
    bool deep = false;  // reads what takes long, too: the lists of blocks of large caches that are not up
    // A cache as an admin names it, which Facts::chosen tells the name of. Throws a Failure when there is
    // none.
    std::string cache = {};  // NOLINT(readability-redundant-member-init): g++ warns of one that is left out
};

// Starts one program for all cache devices that are up, reads some twenty small files of each, and of each
// cache that is not up the ends and samples of its volume.
Facts GatherFacts(const GatherOptions& options = {});

// What the checks of these codes find, the worst first, then by code and cache; none: all checks. A check
// whose facts are missing brings the finding that says so.
std::vector<Finding> Diagnose(const Facts& facts, const std::set<std::string>& codes = {});

}  // namespace cli
