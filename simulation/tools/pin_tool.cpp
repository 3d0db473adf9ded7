// The pin tool: lists which files of a volume are to stay in its cache, and keeps a bitmap of their blocks.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <set>
#include <sstream>
#include <stdexcept>

#include "base/unique_fd.h"
#include "simulation/common/checked.h"
#include "simulation/tools/pin_bitmap.h"
#include "simulation/tools/pin_list.h"
#include "simulation/tools/tool.h"

namespace simulation {

namespace {

namespace fs = std::filesystem;

constexpr char kPinUsage[] =
    "usage: vemocachepinfiletool --pin-files FILES --mount-path VOLUME | --unpin-files FILES --mount-path "
    "VOLUME\n"
    "         | --check-pin FILE [--config-path CONFIG] | --handle-mount --mount-path VOLUME [--config-path "
    "CONFIG]\n"
    "         | --handle-umount | --delete-bitmap | --send-bitmap | --get-bitmap-size-byte | --support-pin\n"
    "           --mount-path VOLUME\n"
    "FILES: absolute paths, one a line. CONFIG: /usr/vemo/etc/flashcache_pin_file.conf.\n"
    "The bitmap, a bit for each 64 KiB of the volume, is VOLUME/@flashcache_pin.bitmap; what was sent to "
    "the\n"
    "kernel lies below /run/flashcache_pin.";

struct Request {
    Words files;
    std::string volume;
    std::string config = "/usr/vemo/etc/flashcache_pin_file.conf";
};

Pins ReadPins(const std::string& config) {
    std::ifstream file(config);
    return ParsePins(file);
}

void StorePins(const std::string& config, const Pins& pins) {
    Store(config, TextOf(pins));
}

// What the kernel was told of a volume.
std::string KernelFile(const std::string& volume) {
    std::string name = volume;
    std::replace(name.begin(), name.end(), '/', '_');
    fs::create_directories("/run/flashcache_pin");
    return "/run/flashcache_pin/" + name;
}

int PinFiles(const Request& request) {
    Pins pins = ReadPins(request.config);
    for (const std::string& file : request.files) {
        const struct stat status = StatusOf(file);
        if (!S_ISREG(status.st_mode) || status.st_dev != StatusOf(request.volume).st_dev) {
            throw std::runtime_error(file + " is no file of " + request.volume);
        }
        pins[request.volume].insert(fs::canonical(file));
    }
    StoreBitmap(request.volume, pins[request.volume]);
    StorePins(request.config, pins);
    return 0;
}

int UnpinFiles(const Request& request) {
    Pins pins = ReadPins(request.config);
    for (const std::string& file : request.files) {
        if (pins[request.volume].erase(fs::weakly_canonical(file)) == 0) {
            throw std::runtime_error(file + " is not pinned");
        }
    }
    StoreBitmap(request.volume, pins[request.volume]);
    StorePins(request.config, pins);
    return 0;
}

int CheckPin(const Request& request) {
    const std::string path = fs::canonical(request.files.at(0));
    const Pins pins = ReadPins(request.config);
    const bool pinned = std::any_of(pins.begin(), pins.end(),
                                    [&](const auto& volume) { return volume.second.contains(path); });
    std::cout << (pinned ? "Yes\n" : "Not pinned\n");
    return 0;
}

int SendBitmap(const Request& request) {
    fs::copy_file(BitmapFile(request.volume), KernelFile(request.volume),
                  fs::copy_options::overwrite_existing);
    return 0;
}

int HandleMount(const Request& request) {
    StoreBitmap(request.volume, ReadPins(request.config)[request.volume]);
    return SendBitmap(request);
}

int HandleUmount(const Request& request) {
    fs::remove(KernelFile(request.volume));
    return 0;
}

// A volume without a bitmap has no pinned files.
int DeleteBitmap(const Request& request) {
    Pins pins = ReadPins(request.config);
    pins.erase(request.volume);
    StorePins(request.config, pins);
    fs::remove(BitmapFile(request.volume));
    return HandleUmount(request);
}

int ShowBitmapSize(const Request& request) {
    std::cout << BitmapBytes(request.volume) << "\n";
    return 0;
}

int ShowSupport(const Request& request) {
    std::cout << (VolumeBytes(request.volume) > 0 ? "Yes\n" : "No\n");
    return 0;
}

struct Verb {
    const char* name;
    bool namesFiles;
    bool ofVolume;
    int (*run)(const Request&);
};

constexpr Verb kVerbs[] = {
    {"--pin-files", true, true, PinFiles},          {"--unpin-files", true, true, UnpinFiles},
    {"--check-pin", true, false, CheckPin},         {"--send-bitmap", false, true, SendBitmap},
    {"--handle-mount", false, true, HandleMount},   {"--handle-umount", false, true, HandleUmount},
    {"--delete-bitmap", false, true, DeleteBitmap}, {"--get-bitmap-size-byte", false, true, ShowBitmapSize},
    {"--support-pin", false, true, ShowSupport},
};

// The options behind the verb come in pairs. False when one is not known.
bool ParseOptions(const Words& arguments, size_t first, Request& request) {
    for (size_t i = first; i < arguments.size(); i += 2) {
        const bool isVolume = arguments[i] == "--mount-path";
        if (i + 1 == arguments.size() || (!isVolume && arguments[i] != "--config-path")) {
            return false;
        }
        (isVolume ? request.volume : request.config) = arguments[i + 1];
    }
    return true;
}

}  // namespace

int PinTool(const Words& arguments) {
    const auto* const verb = std::find_if(std::begin(kVerbs), std::end(kVerbs), [&](const Verb& v) {
        return !arguments.empty() && arguments[0] == v.name;
    });
    Request request;
    if (verb == std::end(kVerbs) || (verb->namesFiles && arguments.size() < 2) ||
        !ParseOptions(arguments, verb->namesFiles ? 2 : 1, request) ||
        verb->ofVolume == request.volume.empty()) {
        return Refuse(kPinUsage);
    }
    if (verb->namesFiles) {
        std::istringstream files(arguments[1]);
        request.files = Lines(files);
    }
    try {
        const base::UniqueFd lock(
            Checked(open("/run/lock/flashcache_pin.lock", O_RDWR | O_CREAT | O_CLOEXEC, 0600), "lock"));
        Checked(flock(lock.Get(), LOCK_EX), "lock");
        return verb->run(request);
    } catch (const std::exception& error) {
        return Refuse(std::string("vemocachepinfiletool: ") + error.what());
    }
}

}  // namespace simulation
