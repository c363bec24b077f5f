// Grace (XMGR) plots: what the input asks for, and the files.
// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "FuncLib.h"
#include "ParDef.h"
#include "ParSet.h"

#include <iosfwd>
#include <limits>
#include <span>
#include <string>
#include <utility>
#include <vector>

/// One PLOT or PLOT2 line: a curve and the data points that belong to it.
struct Instr {
  /// low and high of an instruction without a range, inverted so that no range can look like it.
  static constexpr double kNoLow = std::numeric_limits<double>::max();
  static constexpr double kNoHigh = std::numeric_limits<double>::lowest();

  std::string name;
  std::vector<double> x;   ///< abscissae of the curve; coordinate 0 is swept from low to high
  std::vector<int> index;  ///< labels of the data points shown with it
  double low = kNoLow;
  double high = kNoHigh;
  int points = 0;       ///< 0: the default number
  double factor = 1.0;  ///< added to coordinate 1 after each curve point unless it is 1
};

/// The plot switches of the run and everything that plot files are made of.
class Xmgr {
 public:
  void SetXmgr(bool on) { plots_ = on; }
  [[nodiscard]] bool isXmgr() const { return plots_; }
  /// Whether the data lines carry an error column.
  void SetError(bool on) { errors_ = on; }
  [[nodiscard]] bool isError() const { return errors_; }

  void add_plot(Instr instruction) { instructions_.push_back(std::move(instruction)); }
  /// Appends an input line that begins with '@', unchanged.
  void add_XMGRcommand(const std::string& line) { commands_.push_back(line); }
  /// Appends the page setup and the axis labels of a plot family (ModelGroup::plot_header).
  void header(const std::string& family);

  [[nodiscard]] const std::vector<Instr>& instructions() const { return instructions_; }
  /// Grace commands for the top of every file, in the order in which they arrived.
  [[nodiscard]] const std::vector<std::string>& commands() const { return commands_; }

  /// Writes the data and curves of one set. Without plot instructions, a warning on standard
  /// output.
  void xplot(std::ostream& out, const ParSet& fit, int set, const ParDef& pardef,
             const Funclib& funclib) const;
  /// Writes the box with a set's parameters; `errors`, one for each element, may be empty.
  static void annot_plot(std::ostream& out, const ParSet& fit, int set, const ParDef& pardef,
                         std::span<const double> errors);
  /// Writes a column with the means and errors of an error analysis beside the box: the first or
  /// second one by `index`.
  static void annot_sims(std::ostream& out, const ParSet& centre, const ParSet& spread, int set,
                         const ParDef& pardef, int index, const std::string& title);

 private:
  void headerStyle(std::ostream& out, const std::string& title, const std::string& equation) const;
  void plotStyle(std::ostream& out, int n, int color, const std::string& name) const;
  static void lineStyle(std::ostream& out, int n, int color, const std::string& name);
  static void defaultString(std::ostream& out);
  static void textItem(std::ostream& out, double x, double y, const std::string& text);
  static void heading(std::ostream& out, double x, double y, const std::string& text);
  static void writeCurve(std::ostream& out, const Instr& instruction, Data point, double end,
                         const ParSet& fit, const ParDef& pardef, const Funclib& funclib);

  std::vector<Instr> instructions_;
  std::vector<std::string> commands_;
  bool plots_ = false;
  bool errors_ = true;
};
