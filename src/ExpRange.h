// The range of exponents, for the models that call exp.
// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <limits>

inline constexpr double kExpMin = -708.3964185322641;  // ln(DBL_MIN): exp() stays normal above it
inline constexpr double kExpMax = 709.782712893384;    // ln(DBL_MAX)

/// -inf or +inf when an exponent is out of the range of exp, else 0.
/// -inf, not 0, on underflow: a value that is not finite is how a model refuses trial parameters; 0
/// would let the fit accept them. Underflow of any exponent comes before overflow of any.
[[nodiscard]] inline double outOfRange(double z1, double z2) {
  constexpr double kInf = std::numeric_limits<double>::infinity();
  if (z1 < kExpMin || z2 < kExpMin) return -kInf;
  if (z1 > kExpMax || z2 > kExpMax) return kInf;
  return 0.0;
}

[[nodiscard]] inline double outOfRange(double z) { return outOfRange(z, z); }
