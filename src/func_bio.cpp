// Recovery curves: two exponentials with complementary amplitudes, inversion after saturation.
// SPDX-License-Identifier: GPL-3.0-or-later
//
// x[0] is the delay; rates in 1/(units of x). All derivatives are written whatever the mask says.
#include "ExpRange.h"
#include "FuncLib.h"

#include <cmath>

namespace {

/// y = A exp(Bx) + |1 - A| exp(Ex) + F: the second amplitude is never negative.
double f2exp3(const Data& d, double* p, std::vector<double>& dydp,
              const std::vector<bool>& /*skip*/) {
  const double a = p[0], b = p[1], e = p[2], f = p[3], x = d.x[0];
  const double z1 = b * x;
  const double z2 = e * x;
  if (const double bad = outOfRange(z1, z2); bad != 0.0) return bad;
  const double e1 = std::exp(z1);
  const double e2 = std::exp(z2);
  const double rest = std::abs(1.0 - a);
  if (!dydp.empty()) {
    // Without the second amplitude's dependence on A, which has no derivative at A = 1: A is to be
    // fixed or searched on a grid.
    dydp[d.slot(0)] = e1;
    dydp[d.slot(1)] = a * x * e1;
    dydp[d.slot(2)] = x * rest * e2;
    dydp[d.slot(3)] = 1.0;
  }
  return a * e1 + rest * e2 + f;
}

/// y = A - 2A exp(Bx).
double fsire(const Data& d, double* p, std::vector<double>& dydp,
             const std::vector<bool>& /*skip*/) {
  const double a = p[0], b = p[1], x = d.x[0];
  const double z = b * x;
  if (const double bad = outOfRange(z); bad != 0.0) return bad;
  const double e = std::exp(z);
  if (!dydp.empty()) {
    dydp[d.slot(0)] = 1.0 - 2.0 * e;
    dydp[d.slot(1)] = -2.0 * a * x * e;
  }
  return a - 2.0 * a * e;
}

// clang-format off
constexpr ParmRow k2Exp3Parms[] = {{"a", -1e9, 1e9, ""}, {"b", -1e6, 1e6, ""}, {"e", -1e6, 1e6, ""}, {"f", -1e9, 1e9, ""}};
constexpr ParmRow kSireParms[] = {{"a", -1.5, 1.5, ""}, {"b", -1e6, 1e6, ""}};

constexpr ModelGroup kCurves = {"EXP", 1, 0, 0};
constexpr ModelRow kModels[] = {
    // function  name     equation in reports                        parameters
    {f2exp3,     "2Exp3", "f(x) = Aexp(Bx) +  (1-A)exp(Ex) + F",     k2Exp3Parms},
    {fsire,      "SIRE",  "f(x) = M0-2*Mo*exp(Bx)",                  kSireParms},
};
// clang-format on

}  // namespace

void Funclib::Read_Bio_Funcs(int) { define(kCurves, kModels); }
