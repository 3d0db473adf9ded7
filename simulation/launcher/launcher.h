#pragma once

#include "simulation/launcher/options.h"

namespace simulation {

// Boots an appliance, runs the command on it, and returns its exit code once nothing is left of the
// appliance. Throws std::exception, with what is missing and what to do, where the machine cannot run one.
int RunAppliance(const Options& options);

}  // namespace simulation
