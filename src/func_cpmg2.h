// What the two-site CPMG models share with the models of more sites.
// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "FuncLib.h"

/// Ends the run unless x0 = 1/tcp of the point is at least 10 1/s.
void checkRate(const Data& d);
/// The answer to a rate that is too small.
[[noreturn]] void ERROR_rate_too_small();

/// Eyring rate constant in 1/s; dH in kcal/mol, dS in kcal/(mol K).
[[nodiscard]] double eyringRate(double temp_kelvin, double dH, double dS);

/// Free ligand [B] of A + B = AB: the positive root of [B]^2 - m [B] - Bt K = 0 with
/// m = Bt - K - A0; concentrations and the dissociation constant K in mol/l.
struct FreeLigand {
  /// An infinite K, nothing binds, leaves all of Bt free.
  FreeLigand(double A0, double Bt, double K);

  double B;
  double root;  ///< sqrt(m^2 + 4 Bt K); d[B] = ([B] dm + d(Bt K))/root
};
