// The report of a run, and the summaries and passes of its error analyses.
// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <optional>
#include <string>
#include <vector>

/// A number and how it was printed: tables copy it digit by digit.
struct Number {
  std::string text;
  double value = 0.0;
};

/// A parameter or a derived quantity. Without an error it is fixed, or a quantity of a plain
/// report.
struct Value {
  std::string name;
  bool quantity = false;
  Number value;
  std::optional<Number> error;
};

struct ReportSet {
  std::string title;
  std::vector<Value> values;
  Number reduced_chi;  // X2/DoF
  int dof = 0;
};

struct ChiLine {
  std::string label;
  Number reduced_chi;
};

struct Report {
  std::string path;
  std::string model;
  std::string equation;
  std::vector<std::string> methods;  // INIT, GRID10, ...
  std::vector<ChiLine> chi_lines;
  int points = 0;
  int dof = 0;
  std::string duration;  // empty in a final report
  std::vector<ReportSet> sets;
  Number reduced_chi;  // of the whole fit
  int digits = 1;      // of its values, 6 unless -prec said otherwise
};

/// Reads a report or a final report. Fails on a file that is none or is unfinished.
Report readReport(const std::string& path);

/// Means and errors of an analysis, one entry for each set of the report, in its order.
struct Analysis {
  std::vector<std::vector<Value>> means;
  std::vector<std::vector<Value>> errors;  // values are those of the fit
  int passes = 0;                          // in the file of passes
  /// By set, by parameter: the value in each pass; empty without the file of passes.
  std::vector<std::vector<std::vector<double>>> drawn;
};

/// The files of "jack" or "monte" beside the report. Nothing where there are none, and nothing but
/// a note where they are of another fit.
std::optional<Analysis> readAnalysis(const Report& report, const std::string& kind,
                                     std::string& note);
