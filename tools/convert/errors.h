// Errors of the measured values: from the file, from a stated noise, or pooled from repeats.
// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "messages.h"
#include "reading.h"

#include <string>
#include <vector>

/// Where errors come from. kAuto takes, experiment by experiment, a stated noise, else the errors
/// of the file when all its points have one, else repeats.
enum class ErrorSource { kAuto, kFile, kNoise, kRepeats };

/// Standard deviation of one value from repeats: s^2 = sum (v - mean)^2 / sum (n - 1), over all
/// points of all residues of an experiment that were measured n > 1 times, references included.
struct PooledError {
  double sigma = 0.0;
  int freedom = 0;  ///< sum (n - 1); 0: there are no repeats
  int points = 0;   ///< with repeats
  /// 95 % confidence interval of sigma, from the chi-square distribution.
  double low = 0.0;
  double high = 0.0;
};

/// Of the readings of one experiment. Repeats agree in residue, frequency and offset.
[[nodiscard]] PooledError poolRepeats(const std::vector<const Reading*>& experiment);

/// Gives each reading its error and takes out those that have none (`rejects` names them). A
/// reference may lack one unless `of_references`. Returns a line for each experiment that says
/// where its errors come from. Ends the run when an experiment has no errors at all.
[[nodiscard]] std::vector<std::string> setErrors(std::vector<Reading>& readings, ErrorSource from,
                                                 bool of_references, Rejects& rejects);

/// "500 MHz, 298.15 K", with ligand and code where they are not 0.
[[nodiscard]] std::string describe(const Conditions& at);
