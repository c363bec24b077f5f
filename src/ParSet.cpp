// One candidate solution of a fit: parameter values, the chi-square of each set, their total.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "ParSet.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>

namespace {

/// Entries below this cannot overflow the sum of any number of sets that fits into memory.
constexpr double kHuge = 1e290;

bool isHuge(double chi) { return !(std::abs(chi) < kHuge); }

}  // namespace

void ParSet::resize(std::size_t sets, std::size_t parms) {
  par.resize(parms);
  chi_.resize(sets);
  refused_.resize(sets);
  refused_sets_ = static_cast<std::size_t>(std::count(refused_.begin(), refused_.end(), 1));
  huge_sets_ = static_cast<std::size_t>(std::count_if(chi_.begin(), chi_.end(), isHuge));
}

void ParSet::zero() {
  std::fill(par.begin(), par.end(), 0.0);
  std::fill(chi_.begin(), chi_.end(), 0.0);
  std::fill(refused_.begin(), refused_.end(), 0);
  refused_sets_ = 0;
  huge_sets_ = 0;
  setTotal(0.0);
}

void ParSet::copy(const ParSet& source, std::span<const int> positions, int set) {
  store(set, source.chi(set), source.refused_[static_cast<std::size_t>(set)] != 0);
  copyValues(source, positions);
}

void ParSet::copyValues(const ParSet& source, std::span<const int> positions) {
  for (const int position : positions) {
    const auto i = static_cast<std::size_t>(position);
    par[i] = source.par[i];
  }
}

void ParSet::setChi(int set, double chi) { store(set, chi, false); }

void ParSet::setRefused(int set, double partial_chi) { store(set, partial_chi, true); }

void ParSet::store(int set, double chi, bool refused) {
  const auto s = static_cast<std::size_t>(set);
  huge_sets_ -= isHuge(chi_[s]) ? 1 : 0;
  huge_sets_ += isHuge(chi) ? 1 : 0;
  refused_sets_ -= refused_[s] != 0 ? 1 : 0;
  refused_sets_ += refused ? 1 : 0;
  chi_[s] = chi;
  refused_[s] = refused ? 1 : 0;
  recalc_chi();
}

double ParSet::total() const {
  if (source_ == TotalSource::kStale) {
    total_ = std::accumulate(chi_.begin(), chi_.end(), 0.0);
    source_ = TotalSource::kKnown;
  }
  return total_;
}

bool ParSet::isFinite() const {
  if (source_ == TotalSource::kStale && huge_sets_ == 0) return true;
  return std::isfinite(total());
}

void ParSet::setTotal(double total) {
  total_ = total;
  source_ = TotalSource::kKnown;
}

bool ParSet::sumFellFrom(int set, double old_chi) const {
  const auto s = static_cast<std::size_t>(set);
  const double before = std::accumulate(chi_.begin(), chi_.begin() + set, 0.0);
  double sum = before + chi_[s];
  double old_sum = before + old_chi;
  for (std::size_t i = s + 1; i < chi_.size() && sum != old_sum; ++i) {
    sum += chi_[i];
    old_sum += chi_[i];
  }
  return sum < old_sum;
}

void ParSet::useEvaluatedTotal() {
  if (refused_sets_ > 0) {
    setTotal(std::numeric_limits<double>::infinity());
  } else {
    recalc_chi();
  }
}
