// A finished run: report, input, error analyses and plots brought together, set by set.
// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "Input.h"
#include "Plot.h"
#include "Report.h"

#include <optional>
#include <string>
#include <vector>

struct Parameter {
  enum class Status { kAdjustable, kShared, kFixed, kDerived };
  std::string name;
  std::string base;         // without labels
  std::string shared_name;  // of the GPAR line
  std::string unit;
  Status status = Status::kAdjustable;
  Number value;
  std::optional<Number> error;  // from the curvature
  std::optional<Number> jack_mean, jack_error, monte_mean, monte_error;
  std::optional<double> low, high;  // legal range of an adjustable one
};

struct SeriesPoint {
  double x = 0.0;
  double y = 0.0;
  double error = 1.0;
  std::optional<double> fit;  // of the curve at x
};

/// The points of one combination of labels, with the curves drawn through them.
struct Series {
  std::string name;
  std::string labels;
  std::vector<SeriesPoint> points;
  std::vector<std::vector<std::array<double, 2>>> curves;
};

struct Set {
  std::string title;
  std::vector<Parameter> parameters;
  Number reduced_chi;
  int dof = 0;
  int points = 0;
  double spared = 0.0;  // of the shared parameters, which dof counts in full: what other sets pay
  std::vector<Point> data;
  std::vector<Series> series;
  std::string plot_note;  // why there is no curve
  bool residuals_agree = true;
  double residual_chi = 0.0;  // from the curves
  int residuals = 0;          // points that have one

  double chi() const { return reduced_chi.value * dof; }
  /// Degrees of freedom where a shared parameter counts as one over the number of its sets, so that
  /// those of all sets add up to those of the fit. X2 of a set is about as large as they are.
  double shareDof() const { return dof + spared; }
  double adjustable() const { return (points - dof) - spared; }
};

struct Run {
  std::string name;
  Report report;
  Input input;
  const Model* model = nullptr;
  bool errors_known = true;
  bool has_jack = false;
  bool has_monte = false;
  std::optional<Analysis> monte;
  std::vector<std::string> notes;  // files that were left out
  std::vector<std::string> files;  // all that the run has
  std::string x_label;             // in the notation of Grace
  std::string y_label;
  std::vector<Set> sets;

  double chi() const { return report.reduced_chi.value * report.dof; }
  int adjustable() const { return report.points - report.dof; }
  bool shares() const;  // some parameter is shared
};

struct RunFiles {
  std::string report;
  std::string input;  // empty: looked for beside the report
  std::string plots;  // directory, empty: that of the report
  std::string name;   // empty: that of the report
  bool no_errors = false;
};

/// Reads all files of a run and checks that they belong together; ends the program where report and
/// input do not.
Run loadRun(const RunFiles& files);
