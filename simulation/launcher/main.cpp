// vemo-appliance: runs a command on a simulated storage appliance, and sees to running ones.
#include <fcntl.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <limits>

#include "base/nearest.h"
#include "simulation/kernel/fault_kinds.h"
#include "simulation/launcher/client.h"
#include "simulation/launcher/launcher.h"
#include "simulation/launcher/process.h"
#include "simulation/launcher/replay.h"
#include "simulation/launcher/report_archive.h"
#include "sizing/failure.h"

namespace {

using simulation::Options;
using simulation::Which;

constexpr char kAbout[] =
    "Runs COMMAND on a simulated storage appliance, and leaves nothing behind on this machine.\n\n"
    "The appliance shows the machine's files, with changes kept to itself; its SSD is /dev/md3, its volume\n"
    "/dev/vg1/volume_1 (with --pairs also /dev/md4 and /dev/vg1/volume_2, and so on). Its system log is\n"
    "/var/log/messages. The exit code is the command's, 128 and the signal when one killed it (so 137 when\n"
    "the power was cut), 125 when the appliance failed, 126 or 127 when the command could not be run.";

constexpr char kFaults[] =
    "An ACTION can be followed by @SKIP (that many uses go well first) and by xTIMES (and all after so many "
    "again):\n"
    "\"reject@3x1\" rejects the fourth write alone. \"ok\" ends a fault.";

void AddWhich(CLI::App& app, Which& which) {
    app.add_option("--state", which.stateFolder, "The appliance that runs on this state folder");
    app.add_option("--pid", which.process, "The appliance of this vemo-appliance process");
}

struct Arguments {
    Options options;
    Which which;
    simulation::ReplayOptions replay;
    std::string name;
    std::string value;
    uint64_t size = 0;
    bool list = false;
    int code = 0;
};

std::shared_ptr<base::UniqueFd> OpenTrace(const std::string& file) {
    base::UniqueFd fd(open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
    if (!fd) {
        throw CLI::ValidationError("--trace", file + ": " + std::strerror(errno));
    }
    return std::make_shared<base::UniqueFd>(std::move(fd));
}

void AddOptions(CLI::App& app, Options& options) {
    const CLI::AsSizeValue size(false);
    CLI::Option* const state =
        app.add_option("--state", options.stateFolder, "Keep disks and configuration in this folder");
    constexpr int64_t kMost = std::numeric_limits<int64_t>::max();
    app.add_flag_function(
           "--volatile{1}", [&options](int64_t seed) { options.volatileSeed = static_cast<uint64_t>(seed); },
           "A power cut, or killing the appliance, takes from the disks at random what they have not "
           "flushed; --volatile=SEED for another choice than that of seed 1")
        ->check(CLI::Range(int64_t{1}, kMost, "SEED"))
        ->needs(state);
    CLI::Option* const report = app.add_option_function<std::string>(
        "--from-report",
        [&options](const std::string& file) {
            options.reported = simulation::ParseReport(simulation::ReadReport(file));
        },
        "Boot into the state of the caches that a report tells: the archive of \"vemocachectl report\", or "
        "the "
        "report.json in it. Dirty blocks stay so until \"vemo-appliance fault cleaning run\"");
    report->check(CLI::ExistingFile)->excludes(state);
    app.add_option("--pairs", options.pairs, "Number of pairs of SSD and volume")
        ->check(CLI::Range(1, 64))
        ->excludes(report)
        ->capture_default_str();
    app.add_option("--pair", options.namedPairs,
                   "A further pair by its names below /dev, such as md30+vg1/volume_10 (may be repeated)")
        ->allow_extra_args(false)
        ->excludes(report)
        ->check([](const std::string& names) {
            const auto plus = names.find('+');
            return plus == std::string::npos || plus == 0 || plus + 1 == names.size() ||
                           names.find("..") != std::string::npos
                       ? std::string("a pair is SSD+VOLUME, such as md30+vg1/volume_10")
                       : std::string();
        });
    app.add_option("--ssd-size", options.ssdBytes, "Size of a new SSD, such as 256M (default 1G)")
        ->transform(size)
        ->excludes(report);
    app.add_option("--volume-size", options.volumeBytes, "Size of a new volume (default 1G)")
        ->transform(size)
        ->excludes(report);
    app.add_option("--clean-rate", options.cleanRate, "Dirty blocks written back per second (0: no limit)")
        ->capture_default_str();
    app.add_option_function<std::string>(
        "--trace", [&options](const std::string& file) { options.trace = OpenTrace(file); },
        "Record what is asked of the cache devices in this file, in the text form of block traces");
}

void AddFault(CLI::App& app, Arguments& arguments) {
    CLI::App* fault = app.add_subcommand("fault", "Makes something go wrong on a running appliance");
    fault->footer("Faults, and the values they take:\n" + simulation::FaultKindsText() + "\n" + kFaults);
    AddWhich(*fault, arguments.which);
    CLI::Option* name = fault->add_option("NAME", arguments.name);
    CLI::Option* value = fault->add_option("VALUE", arguments.value)->needs(name);
    fault->add_flag("--list", arguments.list, "Show the faults that are set, and those that there are")
        ->excludes(name);
    fault->callback([&arguments, value] {
        if (arguments.list) {
            std::cout << "Set:\n"
                      << simulation::SendRequest(arguments.which, {"list-faults"}) << "\nThere are:\n"
                      << simulation::FaultKindsText();
            return;
        }
        if (value->empty()) {
            throw CLI::ParseError("say NAME and VALUE, or --list", CLI::ExitCodes::RequiredError);
        }
        simulation::SendRequest(arguments.which, {"fault", arguments.name, arguments.value});
    });
}

void AddGrow(CLI::App& app, Arguments& arguments) {
    CLI::App* grow =
        app.add_subcommand("grow", "Grows a disk of a running appliance, such as /dev/vg1/volume_1");
    AddWhich(*grow, arguments.which);
    grow->add_option("DISK", arguments.name)->required();
    grow->add_option("SIZE", arguments.size, "Its new size, such as 3G")
        ->required()
        ->transform(CLI::AsSizeValue(false));
    grow->callback([&arguments] {
        simulation::SendRequest(arguments.which, {"grow", arguments.name, std::to_string(arguments.size)});
    });
}

void AddClock(CLI::App& app, Arguments& arguments) {
    CLI::App* clock = app.add_subcommand("clock",
                                         "Moves forward the time that a running appliance's kernel waits by, "
                                         "such as for blocks to lie fallow");
    AddWhich(*clock, arguments.which);
    const std::map<std::string, uint64_t> units = {{"s", 1}, {"m", 60}, {"h", 3600}};
    // The later transformation is done first.
    clock->add_option("TIME", arguments.size, "How far, such as +15m or +30s")
        ->required()
        ->transform(CLI::AsNumberWithUnit(units, CLI::AsNumberWithUnit::UNIT_REQUIRED))
        ->transform([](const std::string& text) {
            return text.starts_with('+') ? text.substr(1)
                                         : throw CLI::ValidationError("such as +15m, not " + text);
        });
    clock->callback([&arguments] {
        simulation::SendRequest(arguments.which, {"clock", std::to_string(arguments.size)});
    });
}

void AddEnter(CLI::App& app, Arguments& arguments) {
    CLI::App* enter = app.add_subcommand("enter", "Runs a second command on a running appliance");
    AddWhich(*enter, arguments.which);
    enter->prefix_command();
    enter->callback([&arguments, enter] {
        const std::vector<std::string> command = enter->remaining();
        if (command.empty()) {
            throw CLI::RequiredError("COMMAND");
        }
        arguments.code = simulation::Enter(arguments.which, command);
    });
}

std::vector<std::string> OwnReplay(const simulation::ReplayOptions& replay) {
    std::vector<std::string> command = {std::filesystem::read_symlink("/proc/self/exe"),
                                        "replay",
                                        "--device",
                                        replay.device,
                                        "--speed",
                                        std::to_string(replay.speed)};
    if (replay.json) {
        command.emplace_back("--json");
    }
    command.insert(command.end(), replay.files.begin(), replay.files.end());
    return command;
}

void AddReplay(CLI::App& app, Arguments& arguments) {
    CLI::App* replay = app.add_subcommand(
        "replay",
        "Plays recorded requests against a cache device of a running appliance, verifies what it reads, and "
        "tells what the kernel counts of the cache");
    AddWhich(*replay, arguments.which);
    replay
        ->add_option("TRACE", arguments.replay.files,
                     "Of any format that \"vemocachectl advise trace\" reads")
        ->required();
    replay->add_option("--device", arguments.replay.device, "The cache device")->capture_default_str();
    replay
        ->add_option("--speed", arguments.replay.speed,
                     "How many times as fast as it was recorded (0: as fast as it goes)")
        ->check(CLI::Range(0.0, 1e9))
        ->capture_default_str();
    replay->add_flag("--json", arguments.replay.json, "Tell it as JSON");
    replay->callback([&arguments] {
        const bool isElsewhere = !arguments.which.stateFolder.empty() || arguments.which.process != 0;
        arguments.code = isElsewhere ? simulation::Enter(arguments.which, OwnReplay(arguments.replay))
                                     : simulation::Replay(arguments.replay);
    });
}

// What follows the options; none of it may look like one, unless "--" stands before it.
std::vector<std::string> CommandOf(const CLI::App& app) {
    std::vector<std::string> command = app.remaining();
    if (command.empty() || !command[0].starts_with("-")) {
        return command;
    }
    if (command[0] == "--") {
        return {command.begin() + 1, command.end()};
    }
    std::vector<std::string> known;
    for (const CLI::Option* option : app.get_options()) {
        known.push_back("--" + option->get_single_name());
    }
    const std::string kin = base::Nearest(command[0].substr(0, command[0].find('=')), known);
    throw CLI::ParseError(
        "there is no option " + command[0] + (kin.empty() ? "" : "; did you mean " + kin + "?"),
        CLI::ExitCodes::ExtrasError);
}

int Serve(int argc, char** argv) {
    CLI::App app(kAbout, "vemo-appliance");
    app.footer(
        "COMMAND [ARG...] follows the options. To run a program called as a subcommand is, give its path.");
    app.prefix_command();
    app.set_version_flag("--version", "vemo-appliance " VEMO_VERSION);
    Arguments arguments;
    AddOptions(app, arguments.options);
    AddFault(app, arguments);
    AddGrow(app, arguments);
    AddClock(app, arguments);
    AddEnter(app, arguments);
    AddReplay(app, arguments);
    try {
        app.parse(argc, argv);
        if (!app.get_subcommands().empty()) {
            return arguments.code;
        }
        arguments.options.command = CommandOf(app);
        if (arguments.options.command.empty()) {
            throw CLI::RequiredError("COMMAND");
        }
        return simulation::RunAppliance(arguments.options);
    } catch (const sizing::Failure& failure) {
        simulation::Complain(failure.what() + std::string(": ") + failure.why);
        return simulation::kExitFailed;
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : simulation::kExitFailed;
    }
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return Serve(argc, argv);
    } catch (const std::exception& error) {
        simulation::Complain(error.what());
    } catch (...) {
        simulation::Complain("unknown exception");
    }
    return simulation::kExitFailed;
}
