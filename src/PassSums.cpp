// Sums over the passes of an error analysis.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "PassSums.h"

void PassSums::Sum::add(double value, double centre) {
  passes += 1;
  sum += value;
  square_sum += (value - centre) * (value - centre);
}

void PassSums::reset(int sets, int parms) {
  total_ = Sum();
  chi_.assign(static_cast<std::size_t>(sets), Sum());
  par_.assign(static_cast<std::size_t>(parms), Sum());
}

void PassSums::addAll(const ParSet& pass, const ParSet& centre) {
  total_.add(pass.total(), centre.total());
  for (std::size_t set = 0; set < chi_.size(); ++set) {
    chi_[set].add(pass.chi(static_cast<int>(set)), centre.chi(static_cast<int>(set)));
  }
  for (std::size_t parm = 0; parm < par_.size(); ++parm) {
    par_[parm].add(pass.par[parm], centre.par[parm]);
  }
}

void PassSums::addSet(const ParSet& pass, const ParSet& centre, int set,
                      std::span<const int> parms) {
  total_.add(pass.total(), centre.total());
  chi_[static_cast<std::size_t>(set)].add(pass.chi(set), centre.chi(set));
  for (const int parm : parms) {
    const auto k = static_cast<std::size_t>(parm);
    par_[k].add(pass.par[k], centre.par[k]);
  }
}

void PassSums::finish(Error error_of, ParSet& mean, ParSet& error) const {
  const auto errorOf = [&](const Sum& s) { return error_of(s.mean(), s.square_sum, s.passes); };
  for (std::size_t set = 0; set < chi_.size(); ++set) {
    mean.setChi(static_cast<int>(set), chi_[set].mean());
    error.setChi(static_cast<int>(set), errorOf(chi_[set]));
  }
  for (std::size_t parm = 0; parm < par_.size(); ++parm) {
    mean.par[parm] = par_[parm].mean();
    error.par[parm] = errorOf(par_[parm]);
  }
  mean.setTotal(total_.mean());
  error.setTotal(errorOf(total_));
}
