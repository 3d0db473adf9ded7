// insmod, rmmod and dmsetup, as far as the appliance's programs use them.
#include <unistd.h>

#include <chrono>
#include <iostream>
#include <sstream>
#include <thread>

#include "simulation/tools/tool.h"

namespace simulation {

namespace {

constexpr char kMapper[] = "/dev/mapper/";

// A device may be named by its path.
std::string DeviceName(const std::string& text) {
    return text.starts_with(kMapper) ? text.substr(sizeof kMapper - 1) : text;
}

int ShowAllTables() {
    std::istringstream names(AskKernel({"list"}).text);
    for (std::string name; std::getline(names, name);) {
        std::cout << name << ": " << AskKernel({"table", name}).text;
    }
    return 0;
}

int ShowTable(const std::string& name) {
    const Answer answer = AskKernel({"table", name});
    if (answer.error != 0) {
        Refuse("Device " + name + " not found");
        return Refuse("Command failed.");
    }
    std::cout << answer.text;
    return 0;
}

// With `retry`, a device that is held is tried again for a while.
int RemoveDevice(const std::string& name, bool retry) {
    constexpr int kTries = 10;
    Answer answer;
    for (int i = 0; i < (retry ? kTries : 1); ++i) {
        answer = AskKernel({"remove", name});
        if (answer.error != EBUSY) {
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    if (answer.error == 0) {
        return 0;
    }
    Refuse("device-mapper: remove ioctl on " + name + " failed: " + answer.text);
    return Refuse("Command failed.");
}

}  // namespace

int Insmod(const Words& arguments) {
    if (arguments.size() != 1) {
        return Refuse("usage: insmod FILE");
    }
    const std::string& path = arguments[0];
    if (access(path.c_str(), R_OK) != 0) {
        return Refuse("insmod: ERROR: could not load module " + path + ": No such file or directory");
    }
    std::string name = path.substr(path.rfind('/') + 1);
    name = name.ends_with(".ko") ? name.substr(0, name.size() - 3) : name;
    const Answer answer = AskKernel({"insmod", name});
    return answer.error == 0 ? 0
                             : Refuse("insmod: ERROR: could not insert module " + path + ": " + answer.text);
}

int Rmmod(const Words& arguments) {
    if (arguments.size() != 1) {
        return Refuse("usage: rmmod MODULE");
    }
    const Answer answer = AskKernel({"rmmod", arguments[0]});
    return answer.error == 0 ? 0 : Refuse("rmmod: ERROR: " + answer.text);
}

int Dmsetup(const Words& arguments) {
    const std::string verb = arguments.empty() ? "" : arguments[0];
    const bool retry = arguments.size() == 3 && arguments[1] == "--retry";
    if (verb == "table" && arguments.size() == 1) {
        return ShowAllTables();
    }
    if (verb == "table" && arguments.size() == 2) {
        return ShowTable(DeviceName(arguments[1]));
    }
    if (verb == "remove" && (arguments.size() == 2 || retry)) {
        return RemoveDevice(DeviceName(arguments.back()), retry);
    }
    if (verb == "ls" && arguments.size() == 1) {
        std::cout << AskKernel({"list"}).text;
        return 0;
    }
    return Refuse("usage: dmsetup table [DEVICE] | remove [--retry] DEVICE | ls");
}

}  // namespace simulation
