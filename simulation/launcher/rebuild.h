#pragma once

#include "simulation/launcher/devices.h"
#include "simulation/launcher/reported_state.h"

namespace simulation {

// Brings the appliance whose root is ours into the reported state; its disks are there. Throws
// std::runtime_error where a step fails.
void Rebuild(const ReportedState& state, Devices& devices);

}  // namespace simulation
