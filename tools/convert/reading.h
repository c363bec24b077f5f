// One measured value, as it stands in a table.
// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "messages.h"

#include <limits>
#include <string>
#include <tuple>

constexpr double kNotGiven = std::numeric_limits<double>::quiet_NaN();

/// What all points of one experiment share. Two experiments with equal conditions are one.
/// The order is that of curves in a set.
struct Conditions {
  double temp_kelvin = 298.15;
  double field_mhz = 0.0;      ///< of 1H
  double concentration = 0.0;  ///< of the ligand, in any unit
  int code = 0;       ///< coherence (MQCPMG) or pulse train (RDC), as the models number them
  double time = 0.0;  ///< constant time T in s, 0 where none is needed

  [[nodiscard]] auto tied() const {
    return std::tie(temp_kelvin, field_mhz, concentration, code, time);
  }
  bool operator<(const Conditions& other) const { return tied() < other.tied(); }
};

/// One measured value.
struct Reading {
  std::string name;  ///< of the residue: the title of its set
  Conditions at;
  double frequency = 0.0;          ///< nu_CPMG or power of the spin lock, in Hz
  double offset = 0.0;             ///< of the spin lock, in Hz
  bool temperature_known = false;  ///< else it is a guess, which most models do not read
  bool spin_lock = false;
  bool reference = false;  ///< without the constant time
  bool is_rate = false;    ///< value is a rate in 1/s, not an intensity
  double value = 0.0;
  double error = kNotGiven;  ///< standard deviation of the value
  double noise = kNotGiven;  ///< standard deviation that the user states for its experiment
  Place place;
};
