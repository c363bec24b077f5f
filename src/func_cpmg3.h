// Exchange among two or three sites by decomposition of the Bloch-McConnell matrix: what the
// three-site CPMG models share with the multiple-quantum matrix models.
// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "LinearAlgebra.h"

#include <array>
#include <cstddef>

/// Rate constants in 1/s, kij from site i to site j.
struct ThreeSiteRates {
  double kab;
  double kba;
  double kbc;
  double kcb;
  double kca;
  double kac;
};

/// kcb from the other five by the cycle condition kab kbc kca = kac kcb kba; 0 for a site without
/// rates; infinite or NaN where the condition cannot hold.
[[nodiscard]] double cycleRate(double kab, double kba, double kbc, double kca, double kac);

/// Equilibrium populations of A, B, C; NaN where the rates leave them open.
[[nodiscard]] std::array<double, 3> equilibrium(const ThreeSiteRates& k);

/// Populations and eigenvectors of the exchange matrix L of dm/dt = -L m, of two or three sites.
struct ExchangeModes {
  static constexpr std::size_t kSites = 3;

  bool valid = false;  ///< false: inputs that are not finite, nothing below holds
  std::array<double, kSites> populations;
  std::array<double, 2 * kSites> eigenvalues;
  std::array<double, 2 * kSites * kSites> V;
  std::array<double, 2 * kSites * kSites> V_inv;

  /// Sites B and C precess at OmegaB and OmegaC rad/s relative to A; no intrinsic relaxation.
  static ExchangeModes ofThree(double OmegaB, double OmegaC, const ThreeSiteRates& k,
                               const std::array<double, 3>& populations);
  static ExchangeModes ofTwo(double OmegaB, double kab, double kba,
                             const std::array<double, 2>& populations);

  /// Half an echo: A = exp(-L tcp/2) with tcp = 1/x0, for the number of sites given to ofThree or
  /// ofTwo.
  void halfEcho(double x0, double* A) const;

 private:
  int sites_ = 0;
  void decompose(const double* L);
};
