// Quantities derived from fitted parameters, and the error analyses that the input asks for.
// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "FuncLib.h"

#include <string>
#include <vector>

/// One derived quantity of the input, with its statistics over the passes of an error analysis: one
/// slot for each set of data.
struct OneCalc {
  enum Type : int { kRex = 1, kPb = 2, kPbRdc = 3, kPbMq = 4 };

  int type = 0;
  std::string label;  ///< names it in reports
  Data data;          ///< the point at which the model is evaluated

  /// Sizes the statistics to `slots` entries of 0.
  void prep(std::size_t slots);
  /// Adds a value of a simulation.
  void addVal(int slot, double value);
  /// Adds a value of a jackknife pass: its deviation is taken from the stored result.
  void addJack(int slot, double value);
  /// The value of the full fit, for addJack.
  void store(int slot, double value);
  /// 0 without values.
  [[nodiscard]] double mean(int slot) const;
  /// Sample standard deviation of values added by addVal; 0 below two values.
  [[nodiscard]] double stdev(int slot) const;
  /// Jackknife standard error of values added by addJack; 0 below two values.
  [[nodiscard]] double jackStdev(int slot) const;

 private:
  struct Slot {
    int count = 0;
    double sum = 0.0;
    double square_sum = 0.0;
    double stored = 0.0;
  };
  [[nodiscard]] const Slot& at(int slot) const { return slots_[static_cast<std::size_t>(slot)]; }
  [[nodiscard]] Slot& at(int slot) { return slots_[static_cast<std::size_t>(slot)]; }
  static void add(Slot& slot, double value, double centre);

  std::vector<Slot> slots_;
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
  /// The point of quantity `i`, whose parameter map the caller fills before run.
  [[nodiscard]] Data& getData(int i) { return at(i).data; }
  [[nodiscard]] const OneCalc& entry(int i) const { return at(i); }

  /// Sizes the statistics of every quantity, all 0.
  void prep(std::size_t slots);
  /// Clears counts, sums and stored results.
  void zero() { prep(slots_); }

  /// Value of quantity `i` for the full parameter vector `par`.
  /// REX: R2eff at x0 = 50 minus R2eff at x0 = 100000 (1/s), 0 when `indices`, the labels of the
  /// set's points, do not hold the quantity's own. PB, PB_RDC, PB_MQ: the minor population
  /// (1 - sqrt(1 - 4 papb))/2; infinite where that is not a number or the model lacks the
  /// parameter. `dydp` takes derivatives that nobody reads, so that model caches stay as a fit
  /// wants them.
  double run(int i, const std::vector<double>& par, ModelFunc model,
             const std::vector<std::vector<int>>& indices, std::vector<double>& dydp,
             const std::vector<bool>& skip);
  /// True when `list` holds `index`.
  [[nodiscard]] static bool checkIndex(const std::vector<int>& index,
                                       const std::vector<std::vector<int>>& list);

  // Statistics of quantity `i` in slot `set`.
  void addVal(int set, int i, double value) { at(i).addVal(set, value); }
  void addJack(int set, int i, double value) { at(i).addJack(set, value); }
  void storeResult(int set, int i, double value) { at(i).store(set, value); }
  [[nodiscard]] double calcMean(int set, int i) const { return at(i).mean(set); }
  [[nodiscard]] double calcStdev(int set, int i) const { return at(i).stdev(set); }
  [[nodiscard]] double calcJackStdev(int set, int i) const { return at(i).jackStdev(set); }

  /// Jackknife: 0 none, 1 with the methods INIT and ONEEX, 2 with the methods of the input.
  void SetJack(int type) { jack_type_ = type; }
  [[nodiscard]] int getJackType() const { return jack_type_; }
  /// Monte Carlo: types as for the jackknife; `iterations` simulations.
  void SetMonte(int type, int iterations);
  [[nodiscard]] int getMonteType() const { return monte_type_; }
  [[nodiscard]] int getMonteIter() const { return monte_iterations_; }

 private:
  [[nodiscard]] const OneCalc& at(int i) const { return calcs_[static_cast<std::size_t>(i)]; }
  [[nodiscard]] OneCalc& at(int i) { return calcs_[static_cast<std::size_t>(i)]; }

  std::vector<OneCalc> calcs_;
  std::size_t slots_ = 0;
  std::vector<double> parms_;  ///< base parameters of the quantity at hand
  int jack_type_ = 0;
  int monte_type_ = 0;
  int monte_iterations_ = 0;
};
