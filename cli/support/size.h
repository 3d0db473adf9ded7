// Sizes as options take them.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace cli {

// Turns "512M" or "120G" (units of 1024) into bytes.
class SizeText : public CLI::Validator {
  public:
    SizeText() : CLI::Validator("SIZE") {
        func_ = [](std::string& text) -> std::string {
            constexpr const char* kRefusal = "not a size such as 512M or 120G";
            // CLI11 would read a negative number as a huge one.
            if (text.empty() || text.front() < '0' || text.front() > '9') {
                return kRefusal;
            }
            try {
                CLI::AsSizeValue(false)(text);
                return "";
            } catch (const CLI::ValidationError&) {
                return kRefusal;
            }
        };
    }
};

}  // namespace cli
