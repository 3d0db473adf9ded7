#pragma once

#include <string>

#include "simulation/common/message.h"

namespace simulation {

// One of the appliance's tools: takes its arguments, without its name, and returns its exit status.
using Tool = int (*)(const Words& arguments);

int Insmod(const Words& arguments);
int Rmmod(const Words& arguments);
int Dmsetup(const Words& arguments);
int FlashcacheCreate(const Words& arguments);
int FlashcacheLoad(const Words& arguments);
int FlashcacheDestroy(const Words& arguments);
int FlashcacheExpand(const Words& arguments);
int PinTool(const Words& arguments);
int Iscsiep(const Words& arguments);
int UpdateServer(const Words& arguments);

// Asks the simulated kernel.
Answer AskKernel(const Words& request);

// Says on standard error why it did not go; always 1.
int Refuse(const std::string& message);

}  // namespace simulation
