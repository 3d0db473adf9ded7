// Which names a report would give away.
#pragma once

#include "report/collect.h"
#include "report/stand_ins.h"

namespace cli {

// Of the devices, volumes, mounts, caches and the host, the serial numbers and IDs, each with its stand-in.
StandIns StandInsFor(const Collected& all);

}  // namespace cli
