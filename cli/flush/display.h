// Shows a flush while it runs: a bar on a terminal, else plain lines, or JSON, one object a line.
#pragma once

#include <chrono>
#include <string>

#include "flush/progress.h"

namespace cli {

class ProgressDisplay {
  public:
    ProgressDisplay(const std::string& cacheName, bool json);
    ~ProgressDisplay();  // leaves the bar's line
    ProgressDisplay(const ProgressDisplay&) = delete;
    ProgressDisplay& operator=(const ProgressDisplay&) = delete;

    // How often to show.
    [[nodiscard]] std::chrono::milliseconds Interval() const;

    void Show(const Progress& progress);

    // Says something between two showings.
    void Say(const std::string& text);

  private:
    void ShowBar(const Progress& progress);
    void LeaveBar();

    std::string cacheName_;
    bool json_;
    bool bar_;
    bool onBarLine_ = false;
    bool endShown_ = false;  // the plain line that no block is dirty
};

}  // namespace cli
