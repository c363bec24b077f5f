// Writes the input file of dravo.
// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "messages.h"
#include "models.h"
#include "rates.h"

#include <map>
#include <string>
#include <vector>

/// What the user chose. Parameters by the names of the model, without indices.
struct Choices {
  const Layout* layout = nullptr;
  std::vector<std::string> shared;  ///< one value for all residues
  std::map<std::string, Search> searches;
  std::map<std::string, double> fixed;
  std::vector<std::string> methods;  ///< empty: those of the layout
  double reference_field = 0.0;      ///< MHz; 0: the lowest of the data
  std::map<std::string, double> shifts_ppm;
  const Nucleus* nucleus = nullptr;   ///< of shifts_ppm
  std::vector<std::string> comments;  ///< the head: where the numbers come from
};

/// Replaces names of parameters by those of the model, letter case ignored, and "all" in `shared`
/// by the parameters of the exchange. Ends the run on a name that the model lacks, on a
/// concentration without a value and on a METHOD line that dravo would refuse.
void checkChoices(Choices& choices);

/// The whole text. Residues with too few points for their parameters go to `rejects`, as dravo
/// would leave them out. Ends the run when none is left, or when there are more than nine fields,
/// temperatures or concentrations: labels have one digit.
[[nodiscard]] std::string writeInput(const std::vector<Residue>& residues, const Choices& choices,
                                     Rejects& rejects);
