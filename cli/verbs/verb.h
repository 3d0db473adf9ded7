// What all verbs share. Each verb lies in a file of its own, which adds it to the parser.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <memory>
#include <string>

namespace cli {

struct Context {
    bool json = false;
    bool verbose = false;
    bool failed = false;           // part of the work failed, and the printed answer says what
    std::function<void()> action;  // what the chosen verb does, once all arguments are known
};

inline constexpr const char* kCacheHelp =
    "the cache: its name, cachedev_N, or the path of its cache device, SSD, volume or mount";

// Adds a verb that runs `act` with the options that `declare` filled.
template <typename Options, typename Declare, typename Act>
CLI::App* AddVerb(CLI::App& parent, Context& context, const std::string& name, const std::string& help,
                  const std::string& example, Declare declare, Act act) {
    CLI::App* verb = parent.add_subcommand(name, help);
    const auto options = std::make_shared<Options>();
    declare(*verb, *options);
    verb->footer("Example:\n  " + example);
    verb->callback(
        [&context, options, act] { context.action = [&context, options, act] { act(context, *options); }; });
    return verb;
}

void AddCreate(CLI::App& app, Context& context);
void AddList(CLI::App& app, Context& context);
void AddStatus(CLI::App& app, Context& context);
void AddLoad(CLI::App& app, Context& context);
void AddUnload(CLI::App& app, Context& context);
void AddKnob(CLI::App& app, Context& context);
void AddModules(CLI::App& app, Context& context);
void AddWipe(CLI::App& app, Context& context);
void AddConfig(CLI::App& app, Context& context);
void AddFlush(CLI::App& app, Context& context);
void AddDelete(CLI::App& app, Context& context);
void AddExpand(CLI::App& app, Context& context);
void AddState(CLI::App& app, Context& context);
void AddAttribute(CLI::App& app, Context& context);
void AddSize(CLI::App& app, Context& context);
void AddMemory(CLI::App& app, Context& context);
void AddProbe(CLI::App& app, Context& context);
void AddSsd(CLI::App& app, Context& context);
void AddSerials(CLI::App& app, Context& context);
void AddNotify(CLI::App& app, Context& context);
void AddApm(CLI::App& app, Context& context);
void AddPin(CLI::App& app, Context& context);
void AddFilestat(CLI::App& app, Context& context);

}  // namespace cli
