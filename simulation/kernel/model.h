// The model of a cache that this kernel carries out.
#pragma once

#include "sizing/model/cache_model.h"

namespace simulation {

using sizing::CacheModel;
using sizing::Cleaning;
using sizing::Counter;
using sizing::Counters;
using sizing::kKnobs;
using sizing::kMostPolicy;
using sizing::Knob;
using sizing::KnobInfo;
using sizing::kReclaimFifo;
using sizing::kReclaimLru;
using sizing::ParseKnobValue;
using sizing::Piece;
using sizing::SlotMap;
using sizing::Step;

}  // namespace simulation
