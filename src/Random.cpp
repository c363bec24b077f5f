// Random numbers of the search strategies.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "Random.h"

#include "FreshTwister.h"

#include <chrono>
#include <cmath>
#include <random>
#include <utility>

std::uint32_t Random::systemClock() {
  return static_cast<std::uint32_t>(std::chrono::system_clock::now().time_since_epoch().count());
}

double Random::unirand() {
  FreshTwister engine(clock_());
  return std::uniform_real_distribution<double>(0.0, 1.0)(engine);
}

double Random::gaussrand() {
  if (std::exchange(has_kept_, false)) return kept_;
  FreshTwister engine(clock_());
  std::uniform_real_distribution<double> uniform(0.0, 1.0);
  double x = 0.0;
  double y = 0.0;
  double r2 = 0.0;
  do {
    x = 2.0 * uniform(engine) - 1.0;
    y = 2.0 * uniform(engine) - 1.0;
    r2 = x * x + y * y;
  } while (r2 > 1.0 || r2 == 0.0);
  const double m = std::sqrt(-2.0 * std::log(r2) / r2);
  kept_ = x * m;
  has_kept_ = true;
  return y * m;
}
