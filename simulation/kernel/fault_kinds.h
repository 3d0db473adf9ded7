// The faults that there are, and the values that they take.
#pragma once

#include <string>

namespace simulation {

// What is wrong with a fault's name, or with its value; empty when nothing is.
std::string WrongFault(const std::string& name, const std::string& value);

// All faults with the values that they take, for people.
std::string FaultKindsText();

}  // namespace simulation
