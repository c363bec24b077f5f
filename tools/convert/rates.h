// From intensities to points: R2eff = -ln(I/I0)/T, and the rate of the pulses.
// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "messages.h"
#include "reading.h"

#include <string>
#include <vector>

struct RateRules {
  bool spin_lock = false;          ///< the model is one of R1rho
  bool on_resonance = false;       ///< the model takes every offset for 0
  bool counted_pulses = false;     ///< the model counts the pulses in T, see pulseRate
  bool needs_time = false;         ///< T is a column of the model
  bool needs_temperature = false;  ///< it enters the formula
  double i0 = kNotGiven;           ///< instead of the mean of the reference points
  bool i0_error = false;           ///< the error of I0 enters those of the rates
  double floor_rate = 0.0;         ///< least error in 1/s
  double floor_fraction = 0.0;     ///< least error as a fraction of the rate
};

/// One point of a set.
struct Point {
  Conditions at;
  double x0 = 0.0;  ///< 1/tcp in 1/s, or the power of the spin lock in Hz
  double offset = 0.0;
  double rate = 0.0;
  double error = 0.0;
};

/// I0 of one experiment.
struct Reference {
  Conditions at;
  double intensity = 0.0;
  int points = 0;
};

/// One set.
struct Residue {
  std::string name;
  std::vector<Point> points;          ///< by experiment, then by x0
  std::vector<Reference> references;  ///< none for rates and where I0 was given
};

/// Residues in the order in which they first appear. Readings must have their errors. The error of
/// a rate is s/(T |I|), with `i0_error` sqrt((s/I)^2 + (s0/I0)^2)/T, s0 that of the mean. Peaks
/// that are negative in reference and spectrum alike are folded ones and count as others. What
/// cannot be converted goes to `rejects`.
[[nodiscard]] std::vector<Residue> makeRates(const std::vector<Reading>& readings,
                                             const RateRules& rules, Rejects& rejects);

/// 1/tcp = 2 nu_CPMG in 1/s, to four decimals. When the model counts pulses it truncates T/tcp, so
/// the number is rounded up until T times it, as dravo reads both, reaches the even number of
/// pulses; 0 when T/tcp is not near an even number.
[[nodiscard]] double pulseRate(double nu_cpmg, double time, bool counted);
