// Two-site exchange under a spin lock: the smallest decay of the Bloch-McConnell equations, in
// extended precision, which the models of R1rho are compared with.
// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <array>
#include <cmath>
#include <cstddef>
#include <utility>

namespace spinlock {

using Real = long double;

constexpr Real real(double x) { return static_cast<Real>(x); }

/// Two sites in the frame of a spin lock along x; angular frequencies and rates in rad/s and 1/s.
struct TwoSites {
  double kex, pB, R1, R2, omega1, offset_a, offset_b;
};

using Matrix6 = std::array<std::array<Real, 6>, 6>;

/// dM/dt = -L M for M = (Ax, Ay, Az, Bx, By, Bz).
inline Matrix6 relaxation(const TwoSites& s) {
  Matrix6 L{};
  const std::array<Real, 2> leave = {real(s.pB) * real(s.kex), (1 - real(s.pB)) * real(s.kex)};
  const std::array<Real, 2> offset = {real(s.offset_a), real(s.offset_b)};
  for (std::size_t site = 0; site < 2; ++site) {
    const std::size_t x = 3 * site, y = x + 1, z = x + 2, other = 3 - x;
    L[x][x] = L[y][y] = real(s.R2) + leave[site];
    L[z][z] = real(s.R1) + leave[site];
    L[x][y] = offset[site];
    L[y][x] = -offset[site];
    L[y][z] = real(s.omega1);
    L[z][y] = -real(s.omega1);
    for (std::size_t i = 0; i < 3; ++i) L[x + i][other + i] = -leave[1 - site];
  }
  return L;
}

/// det(L - lambda), by elimination with row exchange.
inline Real characteristic(Matrix6 L, Real lambda) {
  for (std::size_t i = 0; i < 6; ++i) L[i][i] -= lambda;
  Real det = 1;
  for (std::size_t i = 0; i < 6; ++i) {
    std::size_t pivot = i;
    for (std::size_t row = i; row < 6; ++row) {
      if (std::fabs(L[row][i]) > std::fabs(L[pivot][i])) pivot = row;
    }
    if (pivot != i) {
      std::swap(L[pivot], L[i]);
      det = -det;
    }
    det *= L[i][i];
    for (std::size_t row = i + 1; row < 6; ++row) {
      const Real factor = L[row][i] / L[i][i];
      for (std::size_t col = i; col < 6; ++col) L[row][col] -= factor * L[i][col];
    }
  }
  return det;
}

/// The smallest real eigenvalue of L. The determinant is positive at 0 (no mode grows), and complex
/// pairs do not change its sign, so this is where the sign first changes.
inline double smallestDecay(const TwoSites& s) {
  const Matrix6 L = relaxation(s);
  constexpr Real kScan = 0.05L;
  Real low = 0;
  while (characteristic(L, low + kScan) > 0) low += kScan;
  Real high = low + kScan;
  for (int i = 0; i < 70; ++i) {
    const Real middle = (low + high) / 2;
    (characteristic(L, middle) > 0 ? low : high) = middle;
  }
  return static_cast<double>((low + high) / 2);
}

}  // namespace spinlock
