#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace simulation {

// Where the parts of the new root are put together, in the mount namespace that is still private to init: a
// tmpfs over /run, of which the appliance gets a fresh one anyway.
inline constexpr char kStage[] = "/run";
inline constexpr char kStageDev[] = "/run/dev";        // becomes /dev
inline constexpr char kStageKernel[] = "/run/kernel";  // the simulated kernel's file system

// What the appliance shows of the machine beyond its root.
struct RootPlan {
    std::vector<std::string> neededPaths;  // of the machine, visible even where they lie below /tmp
    std::string keptEtc;                   // folders that become /usr/vemo/etc and /etc.defaults;
    std::string keptDefaults;              // "": fresh ones
    std::string installPrefix;             // the folder above that of our own program
};

// Puts a program of ours before the machine's own one that a fault ("tool.cp") is about to befall; nothing
// for others.
void StandBefore(std::string_view faultName);

// Leaves the machine's mount namespace and makes the stage with its /dev.
void EnterStage();

// Builds the appliance's root and makes it ours. The simulated kernel must be serving its file system.
void EnterRoot(const RootPlan& plan);

}  // namespace simulation
