// The table of ratios.
#pragma once

#include <benchmark/benchmark.h>

namespace bench {

// Prints a line for each measure of each comparison.
class Table : public benchmark::BenchmarkReporter {
  public:
    bool ReportContext(const Context& context) override;
    void ReportRuns(const std::vector<Run>& runs) override;

    bool HasErrors() const { return hasErrors_; }

  private:
    bool hasErrors_ = false;
};

}  // namespace bench
