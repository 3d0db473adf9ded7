#pragma once

#include <string>

#include "base/unique_fd.h"
#include "simulation/launcher/options.h"
#include "simulation/launcher/state.h"

namespace simulation {

// The appliance's first process: boots it, runs the command, and takes everything down in order. To be
// called in a new PID namespace, as its process 1. Returns the command's exit code.
//
//  Through `launcher` it tells the number of the FUSE connection once that is up, as a decimal text; the
// pipe's other end sees us end when it closes.
int RunInit(const Options& options, const State& state, base::UniqueFd launcher);

}  // namespace simulation
