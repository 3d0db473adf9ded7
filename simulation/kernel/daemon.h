#pragma once

#include "simulation/kernel/kernel.h"

namespace simulation {

// Serves the simulated kernel until its file system is unmounted or the socket's other end is closed: its
// files over `fuseFd`, its requests over `requests`, a SOCK_SEQPACKET socket.
void ServeKernel(Kernel& kernel, int fuseFd, int requests);

}  // namespace simulation
