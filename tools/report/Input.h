// The input file of a run, as far as a report needs it: model, sets with their points and
// declarations, plot lines. It is known to have been fitted, so faults in it are not looked for.
// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "Models.h"

#include <string>
#include <vector>

struct Point {
  std::vector<double> x;
  std::string labels;  // "0" for models without
  double y = 0.0;
  double error = 1.0;
};

/// A PAR, REST or FIXED line of a set, or a GPAR, GREST or GFIXED line.
struct Declaration {
  enum class Kind { kAdjustable, kRestrained, kFixed, kReference };
  Kind kind = Kind::kAdjustable;
  std::string name;
  double low = 0.0;  // of the range on the line
  double high = 0.0;
  std::string global;  // of a reference
};

struct InputSet {
  std::string title;
  std::vector<Declaration> declarations;
  std::vector<Point> points;
};

struct PlotLine {
  std::string name;
  std::string labels;
};

struct CalcLine {
  std::string type;
  std::string label;
};

struct Input {
  std::string path;
  const Model* model = nullptr;
  bool errors = true;  // the points have an error column
  std::vector<InputSet> sets;
  std::vector<Declaration> globals;
  std::vector<PlotLine> plots;
  std::vector<CalcLine> calcs;
};

/// Fails with a message where a line cannot be one of a fitted input.
Input readInput(const std::string& path);
