// One candidate solution of a fit: parameter values, the chi-square of each set, their total.
// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <span>
#include <vector>

/// Values of the whole parameter vector with the chi-square of each set and their total.
///
/// The total is either summed over the sets, from set 0 upward, when it is read and something has
/// changed since, or it is the number that setTotal was given. Whether it is finite is known
/// without summing, so that a search over one set of many costs no more than that set.
class ParSet {
 public:
  std::vector<double> par;  ///< one value for each position of the parameter vector

  /// Sets first, parameters second; kept entries keep their values, new ones are 0.
  void resize(std::size_t sets, std::size_t parms);
  /// All entries and the total become 0; the lengths stay.
  void zero();
  /// Takes the values at `positions` and the chi-square of `set` over from `source`.
  void copy(const ParSet& source, std::span<const int> positions, int set);
  /// Takes only the values at `positions` over.
  void copyValues(const ParSet& source, std::span<const int> positions);

  [[nodiscard]] std::size_t sets() const { return chi_.size(); }
  [[nodiscard]] double chi(int set) const { return chi_[static_cast<std::size_t>(set)]; }
  /// Stores the chi-square of `set`; the total is then the sum of the entries.
  void setChi(int set, double chi);
  /// As setChi, for a set whose evaluation ended at a value that is not finite: the entry keeps the
  /// sum up to that point, which later comparisons see, while evaluatedTotal is infinite.
  void setRefused(int set, double partial_chi);

  /// The sum of the entries, or the number given to setTotal since they last changed.
  [[nodiscard]] double total() const;
  /// True when total() is neither infinite nor NaN.
  [[nodiscard]] bool isFinite() const;
  void setTotal(double total);
  /// The total becomes the sum of the entries again.
  void recalc_chi() { source_ = TotalSource::kStale; }

  /// True when the sum of the entries is smaller than it was when `set` had `old_chi`: a gain too
  /// small for the last digit of the sum does not count.
  [[nodiscard]] bool sumFellFrom(int set, double old_chi) const;

  /// The total becomes that of an evaluation: infinite if any set was refused, else the sum.
  void useEvaluatedTotal();

 private:
  enum class TotalSource { kStale, kKnown };

  void store(int set, double chi, bool refused);

  std::vector<double> chi_;
  std::vector<char> refused_;
  std::size_t refused_sets_ = 0;  ///< entries stored by setRefused
  std::size_t huge_sets_ = 0;     ///< entries that are not finite or could overflow the sum
  mutable TotalSource source_ = TotalSource::kKnown;
  mutable double total_ = 0.0;
};
