// Pinning and unpinning one file.
#pragma once

#include <string>

#include "output/record.h"

namespace cli {

struct Pinning {
    enum class Result { kPinned, kAlreadyPinned, kUnpinned, kNotPinned, kFailed };

    std::string path;
    Result result = Result::kFailed;
    std::string problem;  // of a failure

    [[nodiscard]] Record Fields() const;
};

// The absolute path that the pin tool takes.
std::string PinPath(const std::string& file);

// Pins the file of the volume mounted at `mount`, or lets it go; a file that is so already is left alone.
Pinning ChangePin(const std::string& file, const std::string& mount, bool pin);

}  // namespace cli
