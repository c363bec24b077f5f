// Propagation of single- and multiple-quantum coherences of up to three sites through CPMG trains,
// pulse by pulse, in extended precision: what the models of CPMG dispersion are compared with.
// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <array>
#include <cfloat>
#include <cmath>
#include <complex>
#include <cstddef>
#include <map>
#include <utility>
#include <vector>

namespace echo {

using Real = long double;
using Complex = std::complex<Real>;

static_assert(LDBL_MANT_DIG >= 64, "the references need more digits than double has");

// ---- matrices of up to three sites ----

using Vector = std::array<Complex, 3>;

struct Matrix {
  std::array<Vector, 3> e{};
};

inline Matrix operator*(const Matrix& a, const Matrix& b) {
  Matrix c;
  for (std::size_t i = 0; i < 3; ++i) {
    for (std::size_t j = 0; j < 3; ++j) {
      for (std::size_t k = 0; k < 3; ++k) c.e[i][j] += a.e[i][k] * b.e[k][j];
    }
  }
  return c;
}

inline Vector operator*(const Matrix& m, const Vector& v) {
  Vector w{};
  for (std::size_t i = 0; i < 3; ++i) {
    for (std::size_t k = 0; k < 3; ++k) w[i] += m.e[i][k] * v[k];
  }
  return w;
}

inline Matrix scaled(Matrix m, Real factor) {
  for (Vector& row : m.e) {
    for (Complex& z : row) z *= factor;
  }
  return m;
}

inline Real magnitude(const Matrix& m) {
  Real sum = 0;
  for (const Vector& row : m.e) {
    for (const Complex& z : row) sum += std::abs(z);
  }
  return sum;
}

/// exp(m): Taylor series of m/2^n, squared n times.
inline Matrix exponential(const Matrix& m) {
  const Real size = magnitude(m);
  int squarings = 0;
  while (std::ldexp(size, -squarings) > 0.125L) ++squarings;
  const Matrix x = scaled(m, std::ldexp(Real{1}, -squarings));
  Matrix sum;
  for (std::size_t i = 0; i < 3; ++i) sum.e[i][i] = 1;
  for (int n = 18; n > 0; --n) {
    sum = scaled(x * sum, Real{1} / static_cast<Real>(n));
    for (std::size_t i = 0; i < 3; ++i) sum.e[i][i] += Real{1};
  }
  for (int i = 0; i < squarings; ++i) sum = sum * sum;
  return sum;
}

// ---- the experiment ----

/// Exchange, populations and shift differences of B and C; two sites leave C without rates. B may
/// relax faster than A and C.
struct Sites {
  Real ab = 0, ba = 0, bc = 0, cb = 0, ca = 0, ac = 0;
  Real pA = 1, pB = 0, pC = 0;
  Real BN = 0, BH = 0, CN = 0, CH = 0;
  Real excess_R2_of_B = 0;
};

/// A coherence: how often the phase of each nucleus enters, -1, 0 or 1.
struct Coherence {
  int N, H;
};

/// A delay of a coherence, which precesses in B at N BN + H BH.
inline Matrix delayed(const Sites& s, Coherence c, Real delay) {
  const Real B = static_cast<Real>(c.N) * s.BN + static_cast<Real>(c.H) * s.BH;
  const Real C = static_cast<Real>(c.N) * s.CN + static_cast<Real>(c.H) * s.CH;
  Matrix L;
  L.e[0] = {Complex(s.ab + s.ac), Complex(-s.ba), Complex(-s.ca)};
  L.e[1] = {Complex(-s.ab), Complex(s.ba + s.bc + s.excess_R2_of_B, -B), Complex(-s.cb)};
  L.e[2] = {Complex(-s.ac), Complex(-s.bc), Complex(s.ca + s.cb, -C)};
  return exponential(scaled(L, -delay));
}

/// What a code stands for: the coherences at the start, whose signals are averaged, which nuclei
/// the pulses of the train invert, and whether the other one is inverted in its middle.
struct Experiment {
  std::vector<Coherence> starts;
  bool pulse_N, pulse_H;
  bool central;
};

inline const Experiment kExperiments[] = {
    {{{1, 0}}, true, false, false},          // 15N single quantum
    {{{0, 1}}, false, true, false},          // 1H single quantum
    {{{-1, 1}}, true, true, false},          // zero quantum
    {{{1, 1}}, true, true, false},           // double quantum
    {{{1, 1}, {-1, 1}}, true, false, true},  // 15N multiple quantum
    {{{1, 1}, {1, -1}}, false, true, true},  // 1H multiple quantum
};

/// Signal of A after a train of 2 blocks echoes, each delay - pulse - delay.
inline Real signal(const Sites& s, const Experiment& experiment, int blocks, Real x0) {
  std::map<std::pair<int, int>, Matrix> propagators;
  Real sum = 0;
  for (Coherence c : experiment.starts) {
    Vector m = {Complex(s.pA), Complex(s.pB), Complex(s.pC)};
    const auto wait = [&] {
      const auto [entry, is_new] = propagators.try_emplace({c.N, c.H});
      if (is_new) entry->second = delayed(s, c, 0.5L / x0);
      m = entry->second * m;
    };
    for (int echo = 0; echo < 2 * blocks; ++echo) {
      if (experiment.central && echo == blocks) (experiment.pulse_N ? c.H : c.N) *= -1;
      wait();
      if (experiment.pulse_N) c.N = -c.N;
      if (experiment.pulse_H) c.H = -c.H;
      wait();
    }
    sum += m[0].real();
  }
  return sum / static_cast<Real>(experiment.starts.size());
}

/// Exchange contribution of a train of N blocks, as rate over the time T.
inline Real trainRate(const Sites& s, int code, int blocks, Real x0, Real T) {
  return -std::log(signal(s, kExperiments[code], blocks, x0) / s.pA) / T;
}

/// Decay of the slowest mode of two echoes that begin with the code's first coherence: the spectral
/// radius of their propagator, from the growth of its powers, squared at every step.
inline Real endlessRate(const Sites& s, int code, Real x0) {
  const Experiment& experiment = kExperiments[code];
  Coherence c = experiment.starts[0];
  const Matrix before = delayed(s, c, 0.5L / x0);
  if (experiment.pulse_N) c.N = -c.N;
  if (experiment.pulse_H) c.H = -c.H;
  const Matrix after = delayed(s, c, 0.5L / x0);
  Matrix power = before * after * after * before;
  // A site that nothing exchanges with would keep its eigenvalue 1.
  if (s.bc == 0 && s.cb == 0 && s.ca == 0 && s.ac == 0) power.e[2][2] = 0;
  Real log_radius = 0;
  for (int squarings = 0; squarings < 80; ++squarings) {
    const Real size = magnitude(power);
    log_radius += std::ldexp(std::log(size), -squarings);
    power = scaled(power, 1 / size);
    power = power * power;
  }
  return -x0 / 2 * log_radius;
}

}  // namespace echo
