// A line on a terminal that tells how far some work is, and goes when it is done.
#pragma once

#include <string>

namespace cli {

class StepLine {
  public:
    explicit StepLine(bool json);
    ~StepLine();
    StepLine(const StepLine&) = delete;
    StepLine& operator=(const StepLine&) = delete;

    void Show(const std::string& text) const;
    // With a bar of how much of it is done, from 0 to 1.
    void Show(const std::string& text, double share) const;

  private:
    bool isShown_;
};

}  // namespace cli
