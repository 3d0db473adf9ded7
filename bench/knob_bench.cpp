// One knob write from a large process, against the same from a small one.

#include <unistd.h>

#include <sys/wait.h>

#include <memory>

#include "appliance.h"
#include "benches.h"
#include "comparison.h"
#include "vemoflashcache.h"
#include "worker.h"

namespace bench {
namespace {

enum Job { kLibrary, kPlainFork };

void WriteKnob() {
    Require(VEMOFlashCacheDoSysctlSet(FLASHCACHE_SYSCTL_FALLOW_DELAY, 900, SsdPath(0).c_str(),
                                      SpacePath(0).c_str()) == 0,
            "the knob was not written");
}

void WriteKnobAfterFork() {
    const pid_t child = fork();
    if (child == 0) {
        execl("/sbin/sysctl", "/sbin/sysctl", "-q", "dev.flashcache_md3+volume_1.fallow_delay=900", nullptr);
        _exit(127);
    }
    int status = -1;
    Require(child > 0 && waitpid(child, &status, 0) == child && status == 0, "the knob was not written");
}

struct Workers {
    Worker small{std::size_t{10} << 20, {WriteKnob, WriteKnobAfterFork}};
    Worker large{std::size_t{4} << 30, {WriteKnob, WriteKnobAfterFork}};
};

}  // namespace

void RegisterKnobs() {
    // Made when first needed, and gone with the last benchmark that knows of them.
    const auto workers = std::make_shared<std::unique_ptr<Workers>>();
    const auto doJob = [workers](Worker Workers::* which, Job job) -> Run {
        return [=] {
            if (!*workers) {
                HaveCaches(1);
                *workers = std::make_unique<Workers>();
            }
            return (**workers.*which).Do(job);
        };
    };
    Comparison comparison;
    comparison.name = "knobs/4GB";
    comparison.ours = doJob(&Workers::large, kLibrary);
    comparison.baselineName = "the same from 10 MB resident";
    comparison.baseline = doJob(&Workers::small, kLibrary);
    comparison.pairs = 300;
    comparison.lines = {{kWall, 1.20}, {kCpu, 0}};
    Register(comparison);
    comparison.name = "knobs/4GB/fork";
    comparison.ours = doJob(&Workers::large, kPlainFork);
    comparison.baselineName = "fork from 10 MB, fork from both";
    comparison.baseline = doJob(&Workers::small, kPlainFork);
    comparison.pairs = 15;
    comparison.lines = {{kWall, 0}, {kCpu, 0}};
    Register(comparison);
}

}  // namespace bench
