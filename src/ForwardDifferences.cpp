// Derivatives of models that have no analytic ones.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "ForwardDifferences.h"

#include <cmath>

double forwardDifferences(ValueFunc value, std::size_t parms, std::size_t addend, const Data& d,
                          double* p, std::vector<double>& dydp, const std::vector<bool>& skip) {
  constexpr double kStep = 1e-9;  // of the parameter's magnitude
  const double f0 = value(d, p, 0);
  if (dydp.empty()) return f0;
  for (std::size_t k = 0; k < parms; ++k) {
    if (skip[d.slot(k)]) continue;
    if (k == addend) {
      dydp[d.slot(k)] = 1.0;
      continue;
    }
    const double saved = p[k];
    const double h = kStep * std::abs(saved);
    p[k] = saved + h;
    const double f1 = value(d, p, k + 1);
    p[k] = saved;
    dydp[d.slot(k)] = (f1 - f0) / h;
  }
  return f0;
}
