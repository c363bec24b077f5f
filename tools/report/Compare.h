// Several models of the same data: information criteria and F tests.
// With known errors -2 ln L is chi-square but for a constant, otherwise n ln(chi-square/n) and the
// error is one parameter more. AICc: Hurvich and Tsai, Biometrika 76, 297 (1989).
// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "Run.h"

#include <limits>
#include <optional>
#include <string>
#include <vector>

/// Upper tail of the chi-square distribution: how often noise alone gives more.
/// dof may have a fraction.
double chiProbability(double chi, double dof);

struct Criteria {
  std::size_t run = 0;
  double chi = 0.0;
  int points = 0;
  double parameters = 0.0;   // adjustable; in a set a shared one is a fraction
  double reduced_chi = 0.0;  // as reported
  double aic = 0.0;
  double aicc = std::numeric_limits<double>::infinity();  // too few points for it
  double bic = 0.0;
};

struct FTest {
  enum class Nesting { kSameModel, kLimit, kUnknown };
  std::size_t simple = 0;  // runs
  std::size_t rich = 0;
  double extra = 0.0;  // parameters that rich has more
  double dof = 0.0;    // of rich
  double f = 0.0;
  double p = 1.0;
  Nesting nesting = Nesting::kUnknown;
};

/// A set, or the whole, in those runs that have the same data as the first one that has it.
struct Comparison {
  std::string title;
  std::vector<Criteria> criteria;
  std::vector<FTest> tests;
  /// For each run: "" where it is compared, else what is different.
  std::vector<std::string> different;

  const Criteria* of(std::size_t run) const;
  const Criteria* best(double Criteria::*criterion) const;
};

struct Comparisons {
  bool errors_known = true;
  std::vector<std::size_t> runs;  // those with a set that another run has too, by its title
  std::vector<Comparison> sets;   // those that several runs have
  Comparison total;               // of the runs that agree with the first of `runs`
};

/// Empty for a single run.
Comparisons compareRuns(const std::vector<Run>& runs);

Criteria makeCriteria(std::size_t run, double chi, int points, double parameters,
                      bool errors_known);
