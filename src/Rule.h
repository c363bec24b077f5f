// Names of a model's parameters: base name, legal bounds and which data labels index it.
// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>
#include <vector>

/// The base parameters of one model, in the order of the model function's parameter array.
///
/// Full names are BASE, BASE_i, BASE_i_j, ...: one index for each position of the parameter's
/// index rule whose character is not '0'. The rule has one character for each integer label of a
/// data line; "10" depends on the first label only, "" belongs to models without labels.
class Rules {
 public:
  /// Stands for a label that a name leaves open: it matches every label.
  static constexpr int kAnyLabel = -1;

  void Define_Parm(const char* name, double lower, double upper, const char* rule);

  [[nodiscard]] unsigned basePAR_size() const { return static_cast<unsigned>(parms_.size()); }
  [[nodiscard]] double Get_LowerBound(unsigned i) const { return parms_[i].lower; }
  [[nodiscard]] double Get_UpperBound(unsigned i) const { return parms_[i].upper; }
  [[nodiscard]] const std::string& baseName(unsigned i) const { return parms_[i].name; }
  [[nodiscard]] const std::string& indexRule(unsigned i) const { return parms_[i].rule; }

  /// Position of the first base parameter of this name, letter case ignored; -1 if there is none.
  [[nodiscard]] int index(const std::string& name) const;

  /// Splits a name as the user wrote it: returns the base parameter's number and appends one index
  /// for each rule position to `indices`, kAnyLabel where the name carries none. A name without
  /// any index leaves every position open, whatever the rule. Ends the run on a bad name.
  int decompose(const std::string& full_name, std::vector<int>& indices) const;

  /// Writes the full name of base parameter `k` to `out`. `indices` has one entry for each rule
  /// position; without it (null) every index is written as 0.
  void markup(std::string& out, int k, const std::vector<int>* indices) const;

  /// Appends the decimal digits of a non-negative integer to `text`.
  static void append_int(std::string& text, int value);

 private:
  struct BaseParm {
    std::string name;
    double lower;
    double upper;
    std::string rule;
  };

  [[noreturn]] void ERROR_unrecognized(const std::string& full_name) const;

  std::vector<BaseParm> parms_;
};
