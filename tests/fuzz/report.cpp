// Reports of appliances, archives or their report.json: anything is a state that can be rebuilt, or is
// refused with words.
#include <stdexcept>

#include "fuzz/target.h"
#include "simulation/launcher/report_archive.h"
#include "simulation/launcher/reported_state.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const fuzz::MemoryFile file(fuzz::TextOf(data, size));
    try {
        for (const auto& cache : simulation::ParseReport(simulation::ReadReport(file.Path())).caches) {
            fuzz::Require(cache.dirty <= cache.cached && cache.cached <= cache.blocks,
                          "no more blocks are dirty than there are");
        }
    } catch (const std::runtime_error& refused) {
        fuzz::Require(*refused.what() != '\0', "a refusal has its words");
    }
    return 0;
}
