// Where values come from: FILE[:KEY=VALUE]..., with defaults from the command line.
// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <map>
#include <string>
#include <vector>

/// What a column of a table or a key of a source means.
enum class Quantity {
  kName,
  kCycles,     ///< pulse pairs in the constant time; 0 is the reference
  kFrequency,  ///< nu_CPMG in Hz; 0 is the reference
  kPower,      ///< of the spin lock, Hz
  kOffset,     ///< of the spin lock, Hz
  kIntensity,
  kRate,  ///< R2eff or R1rho, 1/s
  kError,
  kNoise,
  kField,          ///< MHz of 1H
  kTemperature,    ///< K, or with the suffix C
  kConcentration,  ///< of the ligand
  kTime,           ///< constant time, s
  kCode,
  kIgnored,
};

/// The quantity of this column name, letter case ignored; false if there is none.
[[nodiscard]] bool findQuantity(const std::string& name, Quantity& quantity);
/// True for "ref", which stands for 0 cycles, in any letter case.
[[nodiscard]] bool isReferenceWord(const std::string& text);
/// The first name of a quantity, for messages.
[[nodiscard]] std::string nameOf(Quantity quantity);

/// Constants of a file, each as text that was checked: what no column of the table tells.
using Constants = std::map<Quantity, std::string>;

/// One file and what is known of it from outside.
struct Source {
  std::string path;
  std::string format;                    ///< auto, table, nmrpipe, sparky
  std::vector<Quantity> columns;         ///< of a table; empty: the table has a header
  std::string amplitude;                 ///< height or volume
  Constants constants;                   ///< without cycles and frequency
  Quantity series = Quantity::kIgnored;  ///< kCycles or kFrequency when `values` holds any
  std::vector<std::string> values;       ///< one for each plane of the file

  bool operator==(const Source&) const = default;
};

/// The files of one argument: its path may be a pattern or a directory, whose files are taken in
/// the order of their names. Ends the run on a key, value or file that is not understood. The
/// values of ncyc or nu go to the files one by one, or, when the argument is one file, all to its
/// planes.
[[nodiscard]] std::vector<Source> readSource(const std::string& argument,
                                             const std::map<std::string, std::string>& defaults);

/// The words of a list with commas; empty words too.
[[nodiscard]] std::vector<std::string> splitAt(const std::string& text, char delimiter);
