// Fields, temperatures and concentrations as index digits and factors, points as data lines.
// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "models.h"
#include "rates.h"

#include <map>
#include <string>
#include <vector>

/// One data line: the texts of x0, x1, ... and the digits of the labels.
struct DataLine {
  std::vector<std::string> x;
  std::string label;
  double x0 = 0.0;
  double rate = 0.0;
  double error = 0.0;
};

/// Numbers the conditions of all points, each kind in ascending order from 1.
class Labels {
 public:
  /// Factors are relative to `reference_field` in MHz and the lowest concentration above 0; a field
  /// of 0 stands for the lowest. Ends the run when one digit does not suffice.
  Labels(const std::vector<Residue>& residues, const Layout& layout, double reference_field);

  [[nodiscard]] DataLine lineOf(const Point& point) const;
  /// "500MHz", "278K_600MHz": what tells the curve of this point from the others.
  [[nodiscard]] std::string curveName(const Point& point) const;
  /// What the digits and the factors stand for, as comments.
  [[nodiscard]] std::vector<std::string> legend() const;
  [[nodiscard]] double referenceField() const { return reference_field_; }

 private:
  [[nodiscard]] std::string columnOf(const Point& point, char column) const;
  [[nodiscard]] char digitOf(const Point& point, char label) const;
  [[nodiscard]] double secondColumn(const Point& point) const;

  const Layout& layout_;
  double reference_field_ = 0.0;
  double reference_ligand_ = 1.0;
  std::vector<double> temperatures_;
  std::vector<double> fields_;
  std::vector<double> ligands_;
  std::vector<double> codes_;
  /// The second column of each experiment of a spin lock; empty where it takes too many values.
  std::map<Conditions, std::vector<double>> seconds_;
};
