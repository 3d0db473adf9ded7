// The same seeds in every run; others each time with --gtest_shuffle --gtest_random_seed=1 --gtest_repeat=N.
#pragma once

#include <gtest/gtest.h>

inline unsigned FirstSeed() {
    constexpr unsigned kSeedsOfARun = 10;
    const bool asked = GTEST_FLAG_GET(random_seed) != 0;
    return asked ? static_cast<unsigned>(testing::UnitTest::GetInstance()->random_seed()) * kSeedsOfARun : 1;
}
