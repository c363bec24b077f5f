// Chi-square of a parameter value set, and the vetting of values before a fit.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "Fatal.h"
#include "Fit.h"
#include "Text.h"

#include <cmath>
#include <iostream>
#include <limits>
#include <sstream>

double Fit::calc_y_dy(const std::vector<double>& par, int point, std::vector<double>& dydp,
                      std::vector<double>& scratch) const {
  const Data& data = pardef_.DATA(point);
  const std::size_t size = data.parmap.size();
  for (std::size_t k = 0; k < size; ++k) scratch[k] = par[asIndex(data.parmap[k])];
  return funclib_.Func()(data, scratch.data(), dydp, pardef_.fixedFlags());
}

double Fit::calc_chi(ParSet& at, int set) {
  static std::vector<double> none;
  // Derivatives are thrown away here, but the minimiser starts at these values.
  std::vector<double>& dydp = funclib_.keepsSlopes() ? dydp_ : none;
  double chi = 0.0;
  for (const int point : pardef_.points(set)) {
    const double y = calc_y_dy(at.par, point, dydp, scratch_);
    if (!std::isfinite(y)) {
      at.setRefused(set, chi);
      return std::numeric_limits<double>::infinity();
    }
    const Data& data = pardef_.DATA(point);
    const double deviation = (data.y - y) * data.w;
    chi += deviation * deviation;
  }
  at.setChi(set, chi);
  return chi;
}

double Fit::calc_chi(ParSet& at) {
  for (int set = 0; set < pardef_.SETsize(); ++set) calc_chi(at, set);
  at.useEvaluatedTotal();
  return at.total();
}

void Fit::check_parm(const ParSet& at) const {
  std::ostringstream illegal;
  for (int parm = 0; parm < pardef_.PAR_size(); ++parm) {
    const double value = at.par[asIndex(parm)];
    if (pardef_.isLegal(parm, value)) continue;
    illegal << pardef_.FullName(parm) << ' ' << shown(value) << '\n';
  }
  if (!illegal.str().empty()) fatal("ERROR: Illegal initial parameters\n" + illegal.str());
}

void Fit::check_parm_range(ParSet& at) const {
  using Field = double (ParDef::*)(int) const;
  for (const Field field : {&ParDef::grd_start, &ParDef::grd_end, &ParDef::grd_initial}) {
    for (int parm = 0; parm < pardef_.PAR_size(); ++parm) {
      at.par[asIndex(parm)] = (pardef_.*field)(parm);
    }
    check_parm(at);
  }
}

void Fit::check_chi(const ParSet& at) {
  if (!at.isFinite()) fatal("ERROR: Bad initial parameters\n");
}
