// Random numbers of the search strategies.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "Random.h"

#include "Problem.h"

#include <chrono>
#include <cmath>
#include <cstdint>
#include <random>

namespace {

using problem::FakeClock;

/// The clock that stands still.
std::uint32_t stopped_at = 0;
std::uint32_t stoppedClock() { return stopped_at; }

/// Uniform number from two outputs of the engine, the first of which is the less significant.
double canonical(std::mt19937& engine) {
  const auto low = static_cast<double>(engine());
  const auto high = static_cast<double>(engine());
  return (low + high * 4294967296.0) / 18446744073709551616.0;
}

TEST(UniformNumber, ComesFromTheFirstTwoPublishedOutputsOfTheEngine) {
  // The first outputs of mt19937 for its default seed 5489.
  constexpr double kFirst = 3499211612.0;
  constexpr double kSecond = 581869302.0;
  stopped_at = 5489;
  Random random(stoppedClock);
  EXPECT_DOUBLE_EQ(random.unirand(), (kFirst + kSecond * 4294967296.0) / 18446744073709551616.0);
}

TEST(UniformNumber, IsThatOfAFreshEngineForEverySeed) {
  const auto check = [](std::uint32_t seed) {
    stopped_at = seed;
    Random random(stoppedClock);
    std::mt19937 engine(seed);
    ASSERT_EQ(random.unirand(), canonical(engine)) << "seed " << seed;
  };
  for (std::uint32_t seed = 0; seed < 1000; ++seed) check(seed);
  for (std::uint32_t seed = 4294967295U; seed > 4294966295U; --seed) check(seed);
}

TEST(UniformNumber, TwoDrawsWithinOneTickAreEqual) {
  stopped_at = 77;
  Random random(stoppedClock);
  const double first = random.unirand();
  EXPECT_EQ(random.unirand(), first);
  stopped_at = 78;
  EXPECT_NE(random.unirand(), first);
}

TEST(UniformNumber, IsInItsRangeAndSpreadEvenly) {
  FakeClock::start(1000);
  Random random(FakeClock::now);
  constexpr int kDraws = 20000;
  double sum = 0.0;
  for (int i = 0; i < kDraws; ++i) {
    const double u = random.unirand();
    ASSERT_GE(u, 0.0);
    ASSERT_LT(u, 1.0);
    sum += u;
  }
  // Standard deviation of the mean: 1/sqrt(12 n).
  EXPECT_NEAR(sum / kDraws, 0.5, 5.0 / std::sqrt(12.0 * kDraws));
}

struct Pair {
  double first;
  double second;
};

/// Both deviates of one draw by the polar method.
Pair polar(std::uint32_t seed) {
  std::mt19937 engine(seed);
  for (;;) {
    const double x = 2.0 * canonical(engine) - 1.0;
    const double y = 2.0 * canonical(engine) - 1.0;
    const double r2 = x * x + y * y;
    if (r2 > 1.0 || r2 == 0.0) continue;
    const double m = std::sqrt(-2.0 * std::log(r2) / r2);
    return {y * m, x * m};
  }
}

TEST(NormalDeviate, IsThatOfThePolarMethodWithAFreshEngine) {
  for (std::uint32_t seed = 0; seed < 500; ++seed) {
    stopped_at = seed;
    Random random(stoppedClock);
    const Pair expected = polar(seed);
    ASSERT_DOUBLE_EQ(random.gaussrand(), expected.first) << "seed " << seed;
    ASSERT_DOUBLE_EQ(random.gaussrand(), expected.second) << "seed " << seed;
  }
}

TEST(NormalDeviate, EverySecondOneIsTheKeptOneAndReadsNoClock) {
  FakeClock::start(100);
  Random random(FakeClock::now);
  random.gaussrand();
  EXPECT_EQ(FakeClock::ticks, 101U);
  EXPECT_DOUBLE_EQ(random.gaussrand(), polar(100).second);
  EXPECT_EQ(FakeClock::ticks, 101U);
  EXPECT_DOUBLE_EQ(random.gaussrand(), polar(101).first);
  EXPECT_EQ(FakeClock::ticks, 102U);
}

TEST(NormalDeviate, KeptOneOutlivesUniformDraws) {
  FakeClock::start(100);
  Random random(FakeClock::now);
  random.gaussrand();
  random.unirand();
  EXPECT_DOUBLE_EQ(random.gaussrand(), polar(100).second);
}

TEST(NormalDeviate, HasMeanZeroAndVarianceOne) {
  FakeClock::start(5000);
  Random random(FakeClock::now);
  constexpr int kDraws = 20000;
  double sum = 0.0;
  double squares = 0.0;
  for (int i = 0; i < kDraws; ++i) {
    const double z = random.gaussrand();
    sum += z;
    squares += z * z;
  }
  // Standard deviations: 1/sqrt(n) of the mean, sqrt(2/n) of the variance.
  EXPECT_NEAR(sum / kDraws, 0.0, 5.0 / std::sqrt(kDraws));
  EXPECT_NEAR(squares / kDraws, 1.0, 5.0 * std::sqrt(2.0 / kDraws));
}

TEST(SystemClock, IsTheLowHalfOfTheTicksSinceTheEpoch) {
  const auto ticks = [] {
    return static_cast<std::uint32_t>(std::chrono::system_clock::now().time_since_epoch().count());
  };
  const std::uint32_t before = ticks();
  const std::uint32_t read = Random::systemClock();
  const std::uint32_t after = ticks();
  EXPECT_LE(read - before, after - before);  // modulo 2^32
}

}  // namespace
