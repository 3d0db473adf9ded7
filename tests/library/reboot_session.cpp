// What a test runs on an appliance that it kills: "flush" fills a cache and flushes it, stopping in the first
// pause; "check", after the next boot, brings it up again and sees whether anything was lost.
#include <unistd.h>

#include <iostream>

#include "support/appliance.h"

namespace {

using namespace appliance;

constexpr int kBlocks = 200;
constexpr const char* kOther = "[other]\n\tSSDDevPath = /dev/md9\n\tFromTheFuture = kept\n";

// Ends the session with a message unless all is well.
void Require(bool well, const char* what) {
    if (!well) {
        std::cerr << what << '\n';
        _exit(1);
    }
}

void Flush() {
    WriteWhole(kConfig, kOther);
    AddEntry("mine", kSsd, kSpace);
    CreateCache();
    SetFault("cleaning", "pause");
    WriteBlocks(kCache, kBlocks);
    spy::state().onSleep = [] {
        std::cout << "in the pause\n" << std::flush;
        pause();
    };
    VEMOFlashCacheFlush(kCache);
}

void Check() {
    Require(ReadWhole(kConfig).starts_with(kOther), "the other entry changed");
    Require(VEMOFlashCacheConfigTmpUpdate() == 0 && VEMOFlashCacheConfigTmpGet(nullptr, nullptr) == 2,
            "the configuration cannot be read");
    Require(FlushStateOf() == "flushing", "the flush is not recorded");
    Require(VEMOFlashCacheLoad(kSsd, kSpace, nullptr, 0) == 0, "the cache does not come up");
    Require(HoldsBlocks(kCache, kBlocks), "blocks are lost");
    Require(VEMOFlashCacheDelete(kCache, nullptr, 0) == 0, "the cache cannot be removed");
    Require(HoldsBlocks(kSpace, kBlocks), "blocks did not come to the volume");
    std::cout << "nothing lost\n";
}

}  // namespace

int main(int argc, char** argv) {
    const std::string part = argc == 2 ? argv[1] : "";
    if (part == "flush") {
        Flush();
    } else if (part == "check") {
        Check();
    }
    return testing::Test::HasFailure() ? 1 : 0;
}
