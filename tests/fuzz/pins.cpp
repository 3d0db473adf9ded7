// The pin tool's list: what it keeps reads back.
#include <sstream>

#include "fuzz/target.h"
#include "simulation/tools/pin_list.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::istringstream text{std::string(fuzz::TextOf(data, size))};
    const simulation::Pins pins = simulation::ParsePins(text);
    std::istringstream kept(simulation::TextOf(pins));
    simulation::Pins again = simulation::ParsePins(kept);
    std::erase_if(again, [](const auto& volume) { return volume.second.empty(); });
    fuzz::Require(again == pins, "what is kept reads back");
    for (const auto& [volume, files] : pins) {
        for (const std::string& file : files) {
            fuzz::Require(file.starts_with('/') && file.find('\n') == std::string::npos,
                          "a file is a path of a line");
        }
    }
    return 0;
}
