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
            try {
                CLI::AsSizeValue(false)(text);
                return "";
            } catch (const CLI::ValidationError&) {
                return "not a size such as 512M or 120G";
            }
        };
    }
};

}  // namespace cli
