#include "simulation/tools/pin_list.h"

namespace simulation {

std::vector<std::string> Lines(std::istream& text) {
    std::vector<std::string> lines;
    for (std::string line; std::getline(text, line);) {
        lines.push_back(line);
    }
    return lines;
}

Pins ParsePins(std::istream& text) {
    Pins pins;
    std::string volume;
    for (const std::string& line : Lines(text)) {
        if (line.starts_with('[') && line.ends_with(']')) {
            volume = line.substr(1, line.size() - 2);
        } else if (line.starts_with('/')) {
            pins[volume].insert(line);
        }
    }
    return pins;
}

std::string TextOf(const Pins& pins) {
    std::string text;
    for (const auto& [volume, files] : pins) {
        text += "[" + volume + "]\n";
        for (const std::string& file : files) {
            text += file + "\n";
        }
    }
    return text;
}

}  // namespace simulation
