// Part of each test program whose tests want an appliance of their own: started by hand on the machine it
// tests nothing.
#include <gtest/gtest.h>

#include "support/on_appliance.h"

namespace {

class ApplianceGuard : public testing::Environment {
  public:
    void SetUp() override {
        if (!IsOnAppliance()) {
            FAIL() << "this program tests on the simulated appliance: run it with ctest, or behind "
                      "vemo-appliance";
        }
    }
};

[[maybe_unused]] const auto* const kGuard = testing::AddGlobalTestEnvironment(new ApplianceGuard);

}  // namespace
