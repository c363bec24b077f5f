// Quantities derived from fitted parameters, and the error analyses that the input asks for.
// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "FuncLib.h"

#include <string>
#include <vector>

/// One derived quantity of the input.
struct OneCalc {
  enum Type : int { kRex = 1, kPb = 2, kPbRdc = 3, kPbMq = 4 };

  int type = 0;
  std::string label;  ///< names it in reports
  Data data;          ///< the point at which the model is evaluated
};

/// The derived quantities and the chosen error analyses.
class Calc {
 public:
  /// Appends a quantity: `type` is REX, PB, PB_RDC or PB_MQ in any letter case; ends the run on
  /// another word.
  void Add(const std::string& type, const std::string& label, const std::vector<double>& x,
           const std::vector<int>& index);

  [[nodiscard]] int size() const { return static_cast<int>(calcs_.size()); }
  [[nodiscard]] const std::string& Label(int i) const { return at(i).label; }
  [[nodiscard]] const OneCalc& at(int i) const { return calcs_[static_cast<std::size_t>(i)]; }

  /// Jackknife: 0 none, 1 with the methods INIT and ONEEX, 2 with the methods of the input.
  void SetJack(int type) { jack_type_ = type; }
  [[nodiscard]] int getJackType() const { return jack_type_; }
  /// Monte Carlo: types as for the jackknife; `iterations` simulations.
  void SetMonte(int type, int iterations);
  [[nodiscard]] int getMonteType() const { return monte_type_; }
  [[nodiscard]] int getMonteIter() const { return monte_iterations_; }

 private:
  std::vector<OneCalc> calcs_;
  int jack_type_ = 0;
  int monte_type_ = 0;
  int monte_iterations_ = 0;
};
