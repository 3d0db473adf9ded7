#include <fmt/format.h>

#include <array>

#include "caches/programs.h"
#include "output/answer.h"
#include "support/dry_run.h"
#include "vemoflashcache.h"
#include "verbs/verb.h"

namespace cli {
namespace {

// In the order of their loading.
constexpr std::array kModules = {"vemo_flashcache_control", "flashcache", "flashcache_vemo"};

struct ModulesOptions {
    bool load = false;
};

void LoadModules() {
    const Outcome outcome = Change(
        Attempt, [] { return Step{"CheckAndInsertKernelModule", {}, InsertingModules()}; },
        [] { return CheckAndInsertKernelModule(); });
    if (outcome.result != 0) {
        throw LibraryFailure("the kernel modules could not be loaded", outcome,
                             "see that /lib/modules has them and look at dmesg");
    }
}

void Modules(const Context& context, const ModulesOptions& options) {
    if (options.load) {
        LoadModules();
    }
    Answer answer{"modules", Layout::kTable, {}, "", ""};
    for (const char* name : kModules) {
        const auto loaded = YesOrNo(Attempt([&] { return VEMOFlashCacheIsKModuleLoad(name); }));
        answer.records.push_back({{{"name", "Module", name}, {"loaded", "Loaded", KnownFlag(loaded)}}});
    }
    Print(answer, context.json);
}

}  // namespace

Verb ModulesVerb() {
    return MakeVerb<ModulesOptions>(
        "modules", "Show whether the kernel modules that caches need are loaded",
        "vemocachectl modules --load",
        [](ModulesOptions& options) -> std::vector<Argument> {
            return {{.name = "--load", .help = "load those that are missing first", .target = &options.load}};
        },
        Modules);
}

}  // namespace cli
