// What a piece of work costs.
#pragma once

#include <vector>

namespace bench {

// Times in seconds; those of programs that the work ran and waited for are in. Memory in bytes. Of an
// estimate also what it costs in truth: its absolute errors, where they can be told.
struct Cost {
    double wall = 0;
    double cpu = 0;
    double peakMemory = 0;
    double meanError = 0;
    double worstError = 0;
};

// Starts to measure when made.
class Meter {
  public:
    Meter();
    // Since it was made; the memory is not measured.
    Cost Read() const;

  private:
    Cost start_;
};

template <class Work>
Cost CostOf(const Work& work) {
    const Meter meter;
    work();
    return meter.Read();
}

// Of at least one value; the upper of the two in the middle.
double Median(std::vector<double> values);

// Most memory that this process has had resident since it began to run its program.
double OwnPeakMemory();

}  // namespace bench
