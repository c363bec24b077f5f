// The shortcut to the first numbers of a Mersenne Twister gives those of the standard library.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "FreshTwister.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <random>

namespace {

TEST(FreshTwister, FirstDrawIsThatOfTheStandardEngineForAMillionSeeds) {
  // Seeds spread over all 32 bits by an odd multiplier.
  for (std::uint32_t i = 0; i < 1000000; ++i) {
    const std::uint32_t seed = i * 2654435761U;
    FreshTwister fresh(seed);
    std::mt19937 engine(seed);
    ASSERT_EQ(fresh(), engine()) << seed;
    ASSERT_EQ(fresh(), engine()) << seed;
  }
}

TEST(FreshTwister, GoesOnLikeTheStandardEngineBeyondTheShortcut) {
  for (const std::uint32_t seed : {0U, 1U, 5489U, 0x80000000U, 0xffffffffU}) {
    FreshTwister fresh(seed);
    std::mt19937 engine(seed);
    for (int i = 0; i < 3000; ++i) ASSERT_EQ(fresh(), engine()) << seed << ", number " << i;
  }
}

TEST(FreshTwister, UniformNumbersAreThoseOfTheStandardEngine) {
  std::uniform_real_distribution<double> uniform(0.0, 1.0);
  for (std::uint32_t seed = 0; seed < 1000; ++seed) {
    FreshTwister fresh(seed);
    std::mt19937 engine(seed);
    for (int i = 0; i < 4; ++i) ASSERT_EQ(uniform(fresh), uniform(engine)) << seed;
  }
}

}  // namespace
