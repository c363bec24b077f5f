// Build-up of an amide signal by exchange with water (CLEANEX).
// SPDX-License-Identifier: GPL-3.0-or-later
//
// x[0] is the mixing time in s, the other abscissa only labels; rates in 1/s; intensities relative
// to the full signal. All derivatives are written whatever the mask says.
#include "ExpRange.h"
#include "FuncLib.h"

#include <cmath>
#include <limits>

namespace {

constexpr double kTiny = 1e-30;  // keeps the divisor from 0

/// y = k/(R1a - R1b + k) (exp(-R1b x) - exp(-(R1a + k) x)).
/// At R1a + k = R1b the value is 0, not the limit k x exp(-R1b x): there the divisor is kTiny and
/// the two exponentials are equal.
double fcleanex(const Data& d, double* p, std::vector<double>& dydp,
                const std::vector<bool>& /*skip*/) {
  const double k = p[0], R1a = p[1], R1b = p[2], x = d.x[0];
  const double z1 = (R1a + k) * x;
  const double z2 = R1b * x;
  // Only large exponents are refused: rates and times in their ranges give no negative ones.
  if (z1 > kExpMax || z2 > kExpMax) return std::numeric_limits<double>::infinity();
  const double c = 1.0 / (R1a - R1b + k + kTiny);
  const double e1 = std::exp(-z1);
  const double e2 = std::exp(-z2);
  if (!dydp.empty()) {
    dydp[d.slot(0)] = (c - k * c * c) * (e2 - e1) + x * k * c * e1;
    dydp[d.slot(1)] = -k * c * c * (e2 - e1) + x * k * c * e1;
    dydp[d.slot(2)] = k * c * c * (e2 - e1) - x * k * c * e2;
  }
  return k * c * (e2 - e1);
}

// clang-format off
constexpr ParmRow kCleanexParms[] = {{"k", 0, 2500, "0"}, {"R1a", 0, 100, "1"}, {"R1b", 0, 100, "1"}};

constexpr ModelGroup kBuildUp = {"CLEANEX", 2, 1, 0};
constexpr ModelRow kModels[] = {
    // function  name       equation in reports  parameters
    {fcleanex,   "CLEANEX", "f(k, R1a, R1b)",    kCleanexParms},
};
// clang-format on

}  // namespace

void Funclib::Read_CLEANEX_Funcs(int) { define(kBuildUp, kModels); }
