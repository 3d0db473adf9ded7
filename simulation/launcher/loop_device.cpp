#include "simulation/launcher/loop_device.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <linux/loop.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

#include "base/unique_fd.h"
#include "simulation/common/checked.h"

namespace simulation {

namespace {

constexpr std::string_view kLoop = "loop";

// The device number as the machine tells it ("7:3"), since partitions can change the step between two.
dev_t NumberOfLoop(int index) {
    unsigned majorNumber = 7;
    auto minorNumber = static_cast<unsigned>(index);
    char colon = 0;
    std::ifstream("/sys/block/loop" + std::to_string(index) + "/dev") >> majorNumber >> colon >> minorNumber;
    return makedev(majorNumber, minorNumber);
}

base::UniqueFd OpenLoop(int devFolder, int index) {
    const std::string name = "loop" + std::to_string(index);
    if (mknodat(devFolder, name.c_str(), S_IFBLK | 0660, NumberOfLoop(index)) != 0 && errno != EEXIST) {
        ThrowErrno(name);
    }
    return base::UniqueFd(openat(devFolder, name.c_str(), O_RDWR | O_CLOEXEC));
}

std::set<std::string> NamesOfLoops() {
    std::set<std::string> names;
    std::error_code absent;
    for (const auto& entry : std::filesystem::directory_iterator("/sys/block", absent)) {
        const std::string name = entry.path().filename();
        if (name.starts_with(kLoop)) {
            names.insert(name);
        }
    }
    return names;
}

}  // namespace

LoopDevicesOfMachine::LoopDevicesOfMachine() : before_(NamesOfLoops()) {}

LoopDevicesOfMachine::~LoopDevicesOfMachine() {
    const base::UniqueFd control(open("/dev/loop-control", O_RDWR | O_CLOEXEC));
    for (const std::string& name : NamesOfLoops()) {
        if (!before_.contains(name)) {
            ioctl(control.Get(), LOOP_CTL_REMOVE,
                  std::atoi(name.c_str() + kLoop.size()));  // refused when in use
        }
    }
}

LoopDevice::LoopDevice(int devFolder, int file) {
    constexpr int kTries = 200;  // others may be after the same free device
    const base::UniqueFd control(
        Checked(openat(devFolder, "loop-control", O_RDWR | O_CLOEXEC), "/dev/loop-control"));
    loop_config config{};
    config.fd = static_cast<uint32_t>(file);
    config.info.lo_flags = LO_FLAGS_AUTOCLEAR;
    for (int i = 0; i < kTries; ++i) {
        const int index = Checked(ioctl(control.Get(), LOOP_CTL_GET_FREE), "a free loop device");
        node_ = OpenLoop(devFolder, index);
        if (node_ && ioctl(node_.Get(), LOOP_CONFIGURE, &config) == 0) {
            return;
        }
        if (errno != EBUSY && errno != ENXIO) {
            break;
        }
    }
    ThrowErrno("a loop device");
}

dev_t LoopDevice::Number() const {
    struct stat status{};
    Checked(fstat(node_.Get(), &status), "a loop device");
    return status.st_rdev;
}

bool LoopDevice::Detach() {
    // Of a device that has other holders this only asks for what was asked for already: to end with the last.
    ioctl(node_.Get(), LOOP_CLR_FD, 0);
    loop_info64 info{};
    if (ioctl(node_.Get(), LOOP_GET_STATUS64, &info) == 0) {
        return false;
    }
    node_.Reset();
    return true;
}

void LoopDevice::FollowFile() const {
    Checked(ioctl(node_.Get(), LOOP_SET_CAPACITY, 0), "the size of a loop device");
}

}  // namespace simulation
