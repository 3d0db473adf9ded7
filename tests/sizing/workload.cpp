#include "tests/sizing/workload.h"

#include <algorithm>
#include <cmath>
#include <memory>

namespace sizing {
namespace {

// Ranks become places all over the volume, as hot data is.
std::uint64_t Scatter(std::uint64_t rank, std::uint64_t blocks) {
    return rank * 0x9e3779b1U % blocks;
}

NextRequest Skewed(std::uint64_t blocks, double skew) {
    return [zipf = std::make_shared<Zipf>(blocks, skew), blocks](std::mt19937_64& random) {
        return BlockRequest(random, Scatter((*zipf)(random), blocks));
    };
}

NextRequest Loop(std::uint64_t blocks) {
    return [blocks, next = std::uint64_t{0}](std::mt19937_64& random) mutable {
        return BlockRequest(random, next++ % blocks);
    };
}

// `other`, and now and then `length` blocks in a row, each time others.
NextRequest WithScans(NextRequest other, std::uint64_t from, std::uint64_t length, double share) {
    const double chance = share / static_cast<double>(length) / (1 - share);
    return [=, next = from, left = std::uint64_t{0}](std::mt19937_64& random) mutable {
        if (left == 0 && std::bernoulli_distribution(chance)(random)) {
            left = length;
        }
        if (left == 0) {
            return other(random);
        }
        --left;
        return BlockRequest(random, next++);
    };
}

NextRequest Mix(NextRequest one, NextRequest other, double shareOfOther) {
    return [=](std::mt19937_64& random) {
        return std::bernoulli_distribution(shareOfOther)(random) ? other(random) : one(random);
    };
}

// A hot tenth of the volume gets nine of ten requests, and moves on by a half of itself.
NextRequest MovingHotSpot(std::uint64_t blocks, std::uint64_t requestsUntilMove) {
    return [=, count = std::uint64_t{0}](std::mt19937_64& random) mutable {
        const std::uint64_t hot = blocks / 10;
        const std::uint64_t start = count++ / requestsUntilMove * (hot / 2);
        const bool isHot = std::bernoulli_distribution(0.9)(random);
        return BlockRequest(random, (start + random() % (isHot ? hot : blocks)) % blocks);
    };
}

NextRequest Wide(std::uint64_t blocks, double skew) {
    return [zipf = std::make_shared<Zipf>(blocks / 16, skew), blocks](std::mt19937_64& random) {
        return BlockRequest(random, Scatter((*zipf)(random), blocks / 16) * 16, 1 + random() % 16);
    };
}

NextRequest OnVolume(NextRequest other, std::uint64_t volume) {
    return [=](std::mt19937_64& random) {
        Request request = other(random);
        request.volume = volume;
        return request;
    };
}

}  // namespace

Zipf::Zipf(std::size_t count, double skew) : upTo_(count) {
    double sum = 0;
    for (std::size_t i = 0; i < count; ++i) {
        sum += std::pow(static_cast<double>(i + 1), -skew);
        upTo_[i] = sum;
    }
}

std::uint64_t Zipf::operator()(std::mt19937_64& random) const {
    const double place = std::uniform_real_distribution<double>(0, upTo_.back())(random);
    return static_cast<std::uint64_t>(std::ranges::upper_bound(upTo_, place) - upTo_.begin());
}

double Zipf::Probability(std::size_t number) const {
    return (upTo_[number] - (number == 0 ? 0 : upTo_[number - 1])) / upTo_.back();
}

Request BlockRequest(std::mt19937_64& random, std::uint64_t block, std::uint64_t blocks) {
    Request request;
    request.volume = 1;
    request.offset = block * kWorkloadBlock;
    request.length = blocks * kWorkloadBlock;
    request.kind = random() % 10 < 3 ? Kind::kWrite : Kind::kRead;
    return request;
}

std::vector<Workload> Workloads(std::uint64_t blocks) {
    std::vector<Workload> all;
    for (const double skew : {0.6, 0.8, 0.9, 1.0, 1.1, 1.2}) {
        all.push_back({"Zipf " + std::to_string(skew).substr(0, 3), Skewed(blocks, skew)});
    }
    all.push_back({"loop", Loop(blocks / 2)});
    all.push_back({"loop in Zipf 0.9", Mix(Skewed(blocks, 0.9), OnVolume(Loop(blocks / 4), 2), 0.4)});
    all.push_back({"Zipf 0.9, scans", WithScans(Skewed(blocks, 0.9), blocks, 2'000, 0.2)});
    all.push_back({"hot spot moves", MovingHotSpot(blocks, blocks / 2)});
    all.push_back({"sequential, random", Mix(Loop(blocks / 4), OnVolume(Skewed(blocks, 0.0), 2), 0.5)});
    all.push_back({"requests of 1 to 16", Wide(blocks, 0.8)});
    all.push_back(
        {"three volumes", Mix(Mix(Skewed(blocks / 2, 1.0), OnVolume(Skewed(blocks / 4, 0.7), 2), 0.4),
                              OnVolume(Loop(blocks / 8), 3), 0.2)});
    return all;
}

}  // namespace sizing
