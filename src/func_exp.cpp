// Elementary curves of one abscissa: a constant, a line, exponentials, Gaussians.
// SPDX-License-Identifier: GPL-3.0-or-later
//
// Parameters are in the units of the data and of 1/x; all derivatives are analytic and written
// whatever the mask says.
#include "ExpRange.h"
#include "FuncLib.h"

#include <cmath>

namespace {

/// y = C.
double fconst(const Data& d, double* p, std::vector<double>& dydp,
              const std::vector<bool>& /*skip*/) {
  if (!dydp.empty()) dydp[d.slot(0)] = 1.0;
  return p[0];
}

/// y = A + Bx.
double fline(const Data& d, double* p, std::vector<double>& dydp,
             const std::vector<bool>& /*skip*/) {
  const double a = p[0], b = p[1], x = d.x[0];
  if (!dydp.empty()) {
    dydp[d.slot(0)] = 1.0;
    dydp[d.slot(1)] = x;
  }
  return a + b * x;
}

/// y = A exp(Bx).
double fexp2(const Data& d, double* p, std::vector<double>& dydp,
             const std::vector<bool>& /*skip*/) {
  const double a = p[0], b = p[1], x = d.x[0];
  const double z = b * x;
  if (const double bad = outOfRange(z); bad != 0.0) return bad;
  const double e = std::exp(z);
  if (!dydp.empty()) {
    dydp[d.slot(0)] = e;
    dydp[d.slot(1)] = x * a * e;
  }
  return a * e;
}

/// y = A exp(Bx) + C.
double fexp3(const Data& d, double* p, std::vector<double>& dydp,
             const std::vector<bool>& /*skip*/) {
  const double a = p[0], b = p[1], c = p[2], x = d.x[0];
  const double z = b * x;
  if (const double bad = outOfRange(z); bad != 0.0) return bad;
  const double e = std::exp(z);
  if (!dydp.empty()) {
    dydp[d.slot(0)] = e;
    dydp[d.slot(1)] = x * a * e;
    dydp[d.slot(2)] = 1.0;
  }
  return a * e + c;
}

/// y = A exp(-Bx^2) + C.
double fgauss(const Data& d, double* p, std::vector<double>& dydp,
              const std::vector<bool>& /*skip*/) {
  const double a = p[0], b = p[1], c = p[2], x = d.x[0];
  const double z = -b * (x * x);
  if (const double bad = outOfRange(z); bad != 0.0) return bad;
  const double e = std::exp(z);
  if (!dydp.empty()) {
    dydp[d.slot(0)] = e;
    dydp[d.slot(1)] = -a * (x * x) * e;
    dydp[d.slot(2)] = 1.0;
  }
  return a * e + c;
}

/// y = A exp(-Bx^2) + C exp(-Dx^2).
double fgauss2(const Data& d, double* p, std::vector<double>& dydp,
               const std::vector<bool>& /*skip*/) {
  const double a1 = p[0], b1 = p[1], a2 = p[2], b2 = p[3], x = d.x[0];
  const double z1 = -b1 * (x * x);
  const double z2 = -b2 * (x * x);
  if (const double bad = outOfRange(z1, z2); bad != 0.0) return bad;
  const double e1 = std::exp(z1);
  const double e2 = std::exp(z2);
  if (!dydp.empty()) {
    dydp[d.slot(0)] = e1;
    dydp[d.slot(1)] = -a1 * (x * x) * e1;
    dydp[d.slot(2)] = e2;
    dydp[d.slot(3)] = -a2 * (x * x) * e2;
  }
  return a1 * e1 + a2 * e2;
}

// clang-format off
constexpr ParmRow kConstParms[] = {{"c", -1e9, 1e9, ""}};
constexpr ParmRow kLineParms[] = {{"a", -1e9, 1e9, ""}, {"b", -1e6, 1e6, ""}};
constexpr ParmRow kExp2Parms[] = {{"a", -1e9, 1e9, ""}, {"b", -1e6, 1e6, ""}};
constexpr ParmRow kExp3Parms[] = {{"a", -1e9, 1e9, ""}, {"b", -1e6, 1e6, ""}, {"c", -1e9, 1e9, ""}};
// The rate's range is wider here than in the other models, and so it stays.
constexpr ParmRow kGaussParms[] = {{"a", -1e9, 1e9, ""}, {"b", -1e9, 1e9, ""}, {"c", -1e9, 1e9, ""}};
// The first Gaussian is the minor component.
constexpr ParmRow kGauss2Parms[] = {{"a", 0, 0.5, ""}, {"b", -1e6, 1e6, ""},
                                    {"c", 0.5, 1.0, ""}, {"d", -1e6, 1e6, ""}};

constexpr ModelGroup kCurves = {"EXP", 1, 0, 0};
constexpr ModelRow kModels[] = {
    // function  name        equation in reports                  parameters
    {fconst,     "Constant", "f(x) = C",                          kConstParms},
    {fline,      "Linear",   "f(x) = A + Bx",                     kLineParms},
    {fexp2,      "Exp2",     "f(x) = Aexp(Bx)",                   kExp2Parms},
    {fexp3,      "Exp3",     "f(x) = Aexp(Bx) + C",               kExp3Parms},
    {fgauss,     "Gauss",    "f(x) = Aexp(-Bx^2) + C",            kGaussParms},
    {fgauss2,    "Gauss2",   "f(x) = Aexp(-Bx^2) + Cexp(-Dx^2)",  kGauss2Parms},
};
// clang-format on

}  // namespace

void Funclib::Read_Exp_Funcs(int) { define(kCurves, kModels); }
