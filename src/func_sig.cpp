// Sigmoid curves of two-state thermal denaturation.
// SPDX-License-Identifier: GPL-3.0-or-later
//
// x and tm are temperatures in the same unit (K for "Sig", whose dh is in cal/mol); a and b values
// in units of the data. All derivatives are written whatever the mask says.
#include "ExpRange.h"
#include "FuncLib.h"

#include <cmath>

namespace {

constexpr double kGasCal = 1.987;  // cal/(mol K), four digits; 1.98720426 in the 2019 SI
constexpr double kTiny = 1e-30;    // keeps x = 0 out of divisors

double square(double x) { return x * x; }

/// y = (bd E + bn)/(1 + E) with E = exp(dh (1/(R tm) - 1/(R x))): the van 't Hoff equation in
/// reciprocal temperatures, which the equation in reports writes linearly.
double fsig(const Data& d, double* p, std::vector<double>& dydp,
            const std::vector<bool>& /*skip*/) {
  const double bd = p[0], bn = p[1], tm = p[2], dh = p[3];
  const double x = d.x[0] + kTiny;
  const double g = 1.0 / (kGasCal * tm) - 1.0 / (kGasCal * x);
  const double E = std::exp(dh * g);
  // The temperature, not the exponent, is held to the range of exp: above 709.78 K every value is
  // refused. An exponent that is too large makes the value NaN, which is refused as well.
  if (const double bad = outOfRange(x); bad != 0.0) return bad;
  const double N = bd * E + bn;
  const double S = 1.0 + E;
  if (!dydp.empty()) {
    dydp[d.slot(0)] = E / (kTiny + S);
    dydp[d.slot(1)] = 1.0 / (kTiny + S);
    // Not the derivative: it lacks the factor 1/R, and its second term the factor dh, so that it is
    // nearly proportional to the derivative for bd. Steps in tm stall far from the minimum, and the
    // standard errors of bd and tm are huge: tm is to be fixed or searched on a grid.
    const double by_tm = -1.0 / square(tm);
    dydp[d.slot(2)] = (dh * bd * by_tm * E * S - by_tm * bd * E * N) / square(S) + kTiny;
    dydp[d.slot(3)] = (bd * g * E * S - g * E * N) / square(S);
  }
  return N / S;
}

/// y = (a1 - a2)/(1 + E) + a2 with E = exp((x - tm)/m).
double fsig_boltz(const Data& d, double* p, std::vector<double>& dydp,
                  const std::vector<bool>& /*skip*/) {
  const double a1 = p[0], a2 = p[1], tm = p[2], m = p[3];
  const double u = d.x[0] + kTiny - tm;
  const double E = std::exp(u / m);
  const double S = E + 1.0;
  // The sum, not the exponent, is held to the range of exp: beyond x - tm of about 6.56 m the curve
  // counts as out of range.
  if (const double bad = outOfRange(S); bad != 0.0) return bad;
  if (!dydp.empty()) {
    const double slope = E * (a1 - a2) / square(S);
    dydp[d.slot(0)] = 1.0 / S;
    dydp[d.slot(1)] = 1.0 - 1.0 / S;
    dydp[d.slot(2)] = 1.0 / m * slope;
    dydp[d.slot(3)] = u / square(m) * slope;
  }
  return (a1 - a2) / S + a2;
}

// clang-format off
constexpr ParmRow kSigParms[] = {{"bd", -10, 0, ""}, {"bn", 0, 10, ""}, {"tm", 1, 500, ""}, {"dh", 1, 500000, ""}};
constexpr ParmRow kBoltzParms[] = {{"a1", 0, 1, ""}, {"a2", -1, 0, ""}, {"tm", 1, 300, ""}, {"m", 1, 100, ""}};

constexpr ModelGroup kSigmoid = {"SIG", 1, 0, 0};
constexpr ModelGroup kBoltzmann = {"SIG_BOLTZ", 1, 0, 0};
// The equations are what reports show; they differ from what is computed, and so they stay.
constexpr ModelRow kSig[] = {
    // function  name         equation in reports                                                    parameters
    {fsig,       "Sig",       "f(x) = (bn+bd*exp(dh/R*tm - dh/R*x))/(1+exp(dh/R*tm-dh/R*x))",  kSigParms},
};
constexpr ModelRow kSigBoltz[] = {
    {fsig_boltz, "Sig_boltz", "f(x) = a2 + (a1-a2)/[1+exp(x-tm/m)]",                           kBoltzParms},
};
// clang-format on

}  // namespace

void Funclib::Read_Sig_Funcs(int) {
  define(kSigmoid, kSig);
  define(kBoltzmann, kSigBoltz);
}
