// The appliance's tools in one program, which chooses by the name that it is called by.
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <iostream>

#include "base/unique_fd.h"
#include "simulation/common/programs.h"
#include "simulation/tools/tool.h"

namespace simulation {

Answer AskKernel(const Words& request) {
    const base::UniqueFd connection = ConnectTo(kControlSocket);
    if (!connection) {
        return {ENOTCONN, "this is not a simulated appliance"};
    }
    return Ask(connection.Get(), request);
}

int Refuse(const std::string& message) {
    std::cerr << message << "\n";
    return 1;
}

namespace {

struct NamedTool {
    const char* name;
    Tool run;
};

constexpr NamedTool kTools[] = {
    {"insmod", Insmod},
    {"rmmod", Rmmod},
    {"dmsetup", Dmsetup},
    {"flashcache_create", FlashcacheCreate},
    {"flashcache_load", FlashcacheLoad},
    {"flashcache_destroy", FlashcacheDestroy},
    {"flashcache_expand", FlashcacheExpand},
    {"vemocachepinfiletool", PinTool},
    {"vemoiscsiep", Iscsiep},
    {"vemo-update-server", UpdateServer},
};

[[noreturn]] void Hang() {
    for (;;) {
        pause();
    }
}

// Bytes that no tool should say, on both streams.
int TalkRubbish() {
    constexpr std::string_view rubbish("\x01\xff\xfe%s%n\0\x1b[2J((((no line end", 26);
    std::cout << rubbish << std::flush;
    std::cerr << rubbish << std::flush;
    return 0;
}

// Very many long lines, on both streams.
int Flood(const std::string& count) {
    const std::string line(4000, 'x');
    const int lines = count.empty() ? 1000 : std::atoi(count.c_str());
    for (int i = 0; i < lines; ++i) {
        std::cout << line << "\n";
        std::cerr << line << "\n";
    }
    return 0;
}

// Acts out a fault, told as ACTION or ACTION:NUMBER.
int Misbehave(const std::string& name, const std::string& fault) {
    const size_t colon = std::min(fault.find(':'), fault.size());
    const std::string action = fault.substr(0, colon);
    const std::string number = fault.substr(std::min(colon + 1, fault.size()));
    if (action == "hang") {
        Hang();
    }
    if (action == "rubbish") {
        return TalkRubbish();
    }
    if (action == "flood") {
        return Flood(number);
    }
    if (action == "crash") {
        const rlimit noCore{0, 0};
        setrlimit(RLIMIT_CORE, &noCore);
        signal(SIGSEGV, SIG_DFL);
        raise(SIGSEGV);
    }
    Refuse(name + ": simulated failure");
    Refuse("Command failed.");
    return number.empty() ? 1 : std::atoi(number.c_str());
}

// The fault that a run of the tool meets; an error when there is none to ask.
Answer TakeFault(const std::string& name, const Words& arguments) {
    Answer fault = AskKernel({"take-fault", "tool." + name});
    if (fault.error == 0 && fault.text.empty() && !arguments.empty()) {
        fault = AskKernel({"take-fault", "tool." + name + "." + arguments[0]});
    }
    return fault;
}

// Stands before one of the machine's own programs, to which a fault may happen.
int RunMachineProgram(const std::string& path, Words arguments) {
    const std::string name = path.substr(path.rfind('/') + 1);
    const Answer fault = TakeFault(name, arguments);
    if (fault.error == 0 && !fault.text.empty()) {
        return Misbehave(name, fault.text);
    }
    std::string self = name;  // some are one program with many names
    std::vector<char*> words = {self.data()};
    for (auto& argument : arguments) {
        words.push_back(argument.data());
    }
    words.push_back(nullptr);
    execv((path + kRealSuffix).c_str(), words.data());
    return Refuse(name + ": not one of the machine's programs");
}

int RunTool(const std::string& path, const Words& arguments) {
    const std::string name = path.substr(path.rfind('/') + 1);
    for (const std::string_view program : kMachinePrograms) {
        if (program.ends_with("/" + name)) {
            return RunMachineProgram(std::string(program), arguments);
        }
    }
    const auto* const tool = std::find_if(std::begin(kTools), std::end(kTools),
                                          [&](const NamedTool& t) { return name == t.name; });
    if (tool == std::end(kTools)) {
        return Refuse(name + ": not one of the appliance's tools");
    }
    const Answer fault = TakeFault(name, arguments);
    if (fault.error != 0) {
        return Refuse(name + ": " + fault.text);
    }
    return fault.text.empty() ? tool->run(arguments) : Misbehave(name, fault.text);
}

}  // namespace

}  // namespace simulation

int main(int argc, char** argv) {
    return argc > 0 ? simulation::RunTool(argv[0], simulation::Words(argv + 1, argv + argc)) : 1;
}
