// Reading what may never answer.
#pragma once

#include <chrono>
#include <functional>

namespace cli {

// Does the work in a thread of its own and waits for it; what it throws is thrown here. False when the time
// is up first: the work then goes on by itself for as long as the process lives, so it must own all that it
// works with.
bool DoneInTime(std::chrono::duration<double> patience, std::function<void()> work);

}  // namespace cli
