// The ordered list of search methods of a fit.
// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>
#include <vector>

/// Codes of the search methods.
enum MethodType : int {
  kInit = 1,
  kOne = 2,
  kOneEx = 3,
  kGrid = 4,
  kRandom = 5,
  kMcMin = 6,
  kRmcMin = 7,
};

/// One search step.
struct OneMethod {
  int type = 0;            ///< MethodType
  int iterations = 10;     ///< iterations or trials
  int mc_iterations = 10;  ///< second count, RMCMIN only
  double scale = 0.01;     ///< relative step, MCMIN and RMCMIN only
};

/// The search steps in the order in which they run. A new list holds INIT.
class Method {
 public:
  Method();

  /// Appends the method of a METHOD line, given with its keyword (at least two tokens). Ends the
  /// run on an unknown word or too few options.
  void Add(const std::vector<std::string>& tokens);
  void Clear() { methods_.clear(); }

  [[nodiscard]] int size() const { return static_cast<int>(methods_.size()); }
  [[nodiscard]] int Type(int i) const { return at(i).type; }
  [[nodiscard]] int Iter(int i) const { return at(i).iterations; }
  [[nodiscard]] int IterMC(int i) const { return at(i).mc_iterations; }
  [[nodiscard]] double Scale(int i) const { return at(i).scale; }

  /// Entry `i` as its METHOD line.
  [[nodiscard]] std::string report(int i) const;

 private:
  /// Ends the run when a METHOD line has fewer tokens than its method needs.
  static void check_option(std::size_t tokens, std::size_t required, const std::string& word);
  [[nodiscard]] const OneMethod& at(int i) const { return methods_[static_cast<std::size_t>(i)]; }

  std::vector<OneMethod> methods_;
};
