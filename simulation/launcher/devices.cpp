#include "simulation/launcher/devices.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>

#include "base/unique_fd.h"
#include "simulation/common/checked.h"

namespace simulation {

namespace {

// A path below /dev/, relative to it.
std::string BelowDev(const std::string& path) {
    return path.starts_with("/dev/") ? path.substr(5) : path;
}

}  // namespace

int Devices::AddDisk(const std::string& path, base::UniqueFd file) {
    LoopDevice loop(devFolder_.Get(), file.Get());
    MakeNode(path, loop);
    return disks_.emplace_back(BackedDisk{path, std::move(file), std::move(loop)}).loop.Fd();
}

void Devices::MakeNode(const std::string& path, const LoopDevice& loop) {
    const std::string name = BelowDev(path);
    for (size_t slash = name.find('/'); slash != std::string::npos; slash = name.find('/', slash + 1)) {
        mkdirat(devFolder_.Get(), name.substr(0, slash).c_str(), 0755);
    }
    Checked(mknodat(devFolder_.Get(), name.c_str(), S_IFBLK | 0660, loop.Number()), path);
}

void Devices::ConnectKernel(base::UniqueFd requests, base::UniqueFd files) {
    kernel_ = std::move(requests);
    files_ = std::move(files);
}

Answer Devices::Handle(const Words& request) try {
    const std::string verb = request.empty() ? "" : request[0];
    if ((verb == "create" || verb == "load") && request.size() >= 4) {
        return Bring(request);
    }
    if (verb == "remove" && request.size() == 2) {
        return Remove(request);
    }
    if (verb == "expand" && request.size() >= 2) {
        return Expand(request);
    }
    if (verb == "grow" && request.size() == 3) {
        return Grow(request);
    }
    return Ask(kernel_.Get(), request);
} catch (const std::system_error& error) {
    return {error.code().value(), error.what()};
}

// Both disks of a live cache are claimed, so that nobody mounts them beside it.
base::UniqueFd Devices::Claim(const std::string& path) {
    const bool known =
        std::any_of(disks_.begin(), disks_.end(), [&](const BackedDisk& disk) { return disk.path == path; });
    return known ? base::UniqueFd(Checked(
                       openat(devFolder_.Get(), BelowDev(path).c_str(), O_RDONLY | O_EXCL | O_CLOEXEC), path))
                 : base::UniqueFd();
}

Answer Devices::Bring(const Words& request) {
    const std::string& name = request[1];
    const std::string node = "/dev/mapper/" + name;
    base::UniqueFd ssd = Claim(request[2]);
    base::UniqueFd space = Claim(request[3]);
    Answer answer = Ask(kernel_.Get(), request);
    if (answer.error != 0) {
        return answer;
    }
    try {
        base::UniqueFd file(
            Checked(openat(files_.Get(), ("data/" + name).c_str(), O_RDWR | O_CLOEXEC), node));
        LoopDevice loop(devFolder_.Get(), file.Get());
        MakeNode(node, loop);
        caches_.emplace(name,
                        CacheDevice{std::move(file), std::move(loop), std::move(ssd), std::move(space)});
    } catch (...) {
        Ask(kernel_.Get(), {"remove", name});
        throw;
    }
    return answer;
}

Answer Devices::Remove(const Words& request) {
    const std::string& name = request[1];
    const auto found = caches_.find(name);
    if (found == caches_.end()) {
        return {ENXIO, "No such device or address"};
    }
    if (!Ask(kernel_.Get(), {"take-fault", "remove"}).text.empty()) {
        return {EBUSY, "Device or resource busy"};
    }
    fsync(found->second.loop.Fd());
    if (Ask(kernel_.Get(), {"settle", name}).error != 0) {
        return {EIO, "Input/output error"};
    }
    if (!found->second.loop.Detach()) {
        return {EBUSY, "Device or resource busy"};
    }
    unlinkat(devFolder_.Get(), ("mapper/" + name).c_str(), 0);
    caches_.erase(found);
    return Ask(kernel_.Get(), request);
}

Answer Devices::Expand(const Words& request) {
    Answer answer = Ask(kernel_.Get(), request);
    const auto found = caches_.find(request[1]);
    if (answer.error == 0 && found != caches_.end()) {
        struct stat status{};
        Checked(fstat(found->second.file.Get(), &status), request[1]);  // makes the new size known
        found->second.loop.FollowFile();
    }
    return answer;
}

Answer Devices::Grow(const Words& request) {
    for (const BackedDisk& disk : disks_) {
        if (disk.path != request[1]) {
            continue;
        }
        struct stat status{};
        Checked(fstat(disk.file.Get(), &status), disk.path);
        const off_t size = std::atoll(request[2].c_str());
        if (size < status.st_size || size % 512 != 0) {
            return {EINVAL, disk.path + " has " + std::to_string(status.st_size) +
                                " bytes; it can only grow, in steps of 512"};
        }
        Checked(ftruncate(disk.file.Get(), size), disk.path);
        disk.loop.FollowFile();
        return {};
    }
    return {ENODEV, "no such disk: " + request[1]};
}

void Devices::ShutDown() {
    for (const auto& [name, cache] : caches_) {
        fsync(cache.loop.Fd());
    }
    for (const BackedDisk& disk : disks_) {
        fsync(disk.loop.Fd());
    }
    Ask(kernel_.Get(), {"shutdown"});
}

}  // namespace simulation
