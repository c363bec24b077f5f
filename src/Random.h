// Random numbers of the search strategies.
// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>

/// Uniform and normal deviates from the 32-bit Mersenne Twister, seeded anew by the clock at every
/// draw: two draws within one tick of the clock give the same number.
class Random {
 public:
  using Clock = std::uint32_t (*)();

  /// The low 32 bits of the system clock's ticks since its epoch.
  static std::uint32_t systemClock();

  explicit Random(Clock clock = systemClock) : clock_(clock) {}

  /// Uniform in [0, 1).
  double unirand();
  /// Normal, mean 0, standard deviation 1, by the polar method: a draw makes two deviates, the
  /// second of which the next call returns without drawing.
  double gaussrand();

 private:
  Clock clock_;
  double kept_ = 0.0;
  bool has_kept_ = false;
};
