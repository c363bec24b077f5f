// What the writer must know of a model beside its registration: what its columns and labels mean,
// and where its parameters are searched when the user says nothing.
// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <span>
#include <string>
#include <vector>

/// The layout of a data line. Columns: r 1/tcp, p power of the spin lock (Hz), o its offset (Hz),
/// T constant time (s), t temperature (K), f field factor, l ligand factor, c code, - not read.
/// Labels: t temperature, f field, l ligand, c the code itself, x the second column where it takes
/// few values, so that curves can be told apart.
struct Layout {
  const char* model;
  const char* columns;
  const char* labels;
  const char* methods;  ///< METHOD lines, parted by semicolons, when the user names none

  [[nodiscard]] bool has(char column) const {
    return std::string(columns).find(column) != std::string::npos;
  }
  [[nodiscard]] bool spinLock() const { return has('p'); }
  /// The formula has no offset, although the data line has.
  [[nodiscard]] bool onResonance() const;
  /// The matrix models of multiple-quantum coherence truncate T/tcp to a number of pulses.
  [[nodiscard]] bool countedPulses() const;
  /// The temperature enters the formula.
  [[nodiscard]] bool needsTemperature() const;
};

/// All models that can be written.
[[nodiscard]] std::span<const Layout> layouts();
/// Letter case ignored; null if the model is not among them.
[[nodiscard]] const Layout* findLayout(const std::string& model);

/// Where a parameter is searched.
struct Search {
  double low = 0.0;
  double high = 0.0;
  int points = 1;  ///< of the grid; a single one is `low`
  double start = 0.0;
};

struct ParmDefault {
  const char* name;
  Search search;
  bool shared;  ///< one process has one value for all residues
};

/// Of a parameter of this model, letter case ignored; null for R20, whose range follows from the
/// data, and for concentrations, which the user must state.
[[nodiscard]] const ParmDefault* findDefault(const Layout& layout, const std::string& name);

/// rad/s that 1 ppm of a nucleus is, at a field given as the frequency of 1H.
struct Nucleus {
  const char* name;
  double ratio;  ///< of its frequency to that of 1H
};
[[nodiscard]] std::span<const Nucleus> nuclei();
[[nodiscard]] double radPerPpm(const Nucleus& nucleus, double field_mhz);
