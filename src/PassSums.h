// Sums over the passes of an error analysis.
// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "ParSet.h"

#include <cstddef>
#include <span>
#include <vector>

/// Sums and sums of squared deviations of the total chi-square, of each set's chi-square and of
/// each parameter over the passes that added them.
class PassSums {
 public:
  /// Clears all sums and sizes them.
  void reset(int sets, int parms);
  /// Adds a pass of all sets and parameters; deviations are taken from `centre`.
  void addAll(const ParSet& pass, const ParSet& centre);
  /// Adds a pass of one set: its chi-square, its parameters and the total.
  void addSet(const ParSet& pass, const ParSet& centre, int set, std::span<const int> parms);

  /// An error from the mean, the sum of squared deviations and the number of passes.
  using Error = double (*)(double mean, double square_sum, int passes);
  /// Fills `mean` and `error`, both sized as the passes were.
  void finish(Error error_of, ParSet& mean, ParSet& error) const;

 private:
  struct Sum {
    int passes = 0;
    double sum = 0.0;
    double square_sum = 0.0;

    void add(double value, double centre);
    [[nodiscard]] double mean() const { return sum / passes; }
  };

  Sum total_;
  std::vector<Sum> chi_;
  std::vector<Sum> par_;
};
