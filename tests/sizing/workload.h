// Requests made up, the same ones for the same seed: loads of which the curves are known or differ much.
#pragma once

#include <cstdint>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "sizing/request.h"

namespace sizing {

// Numbers from 0 on, number i with a probability in proportion to 1 / (i + 1)^skew.
class Zipf {
  public:
    Zipf(std::size_t count, double skew);
    std::uint64_t operator()(std::mt19937_64& random) const;
    [[nodiscard]] double Probability(std::size_t number) const;

  private:
    std::vector<double> upTo_;
};

using NextRequest = std::function<Request(std::mt19937_64&)>;

struct Workload {
    std::string name;
    NextRequest next;
};

inline constexpr std::uint64_t kWorkloadBlock = 4096;

// A read or, in three of ten cases, a write.
Request BlockRequest(std::mt19937_64& random, std::uint64_t block, std::uint64_t blocks = 1);

// A dozen loads over some `blocks` blocks: skewed ones, loops, both with scans, hot spots that move,
// sequential ones with random ones, large requests and several volumes.
std::vector<Workload> Workloads(std::uint64_t blocks);

}  // namespace sizing
