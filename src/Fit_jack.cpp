// Jackknife error analysis: the fit is repeated with one data point left out at a time.
// SPDX-License-Identifier: GPL-3.0-or-later
//
// Deviations are taken from the fit to all data, not from the mean of the passes:
// error = sqrt((N - 1)/N sum of squared deviations) (Efron & Stein, Ann. Stat. 9, 586 (1981), for
// the jackknife estimate of variance).
#include "Fit.h"

#include <cmath>
#include <fstream>
#include <iostream>
#include <sstream>

namespace {

double jackError(double /*mean*/, double square_sum, int passes) {
  const double n = passes;
  return std::sqrt(square_sum * (n - 1.0) / n);
}

}  // namespace

void Fit::run_JACK() {
  std::ofstream file = openRunning("-jack");
  const int passes = pardef_.DATAsize();
  file << "Jackknife simulations (" << passes << ")\n";
  storeCalcResults();
  sums_.reset(pardef_.SETsize(), pardef_.PAR_size());
  if (is_global()) {
    run_JACKglobal(file);
  } else {
    run_JACKlocal(file);
  }
  finishRunning(file, "-jack");
}

void Fit::run_JACKglobal(std::ofstream& file) {
  const int passes = pardef_.DATAsize();
  for (int set = 0; set < pardef_.SETsize(); ++set) pardef_.setlDoF(set, pardef_.lDoF(set) - 1);
  for (int pass = 1; pass <= passes; ++pass) {
    if (reportsToConsole()) {
      std::cerr << "\n# Jackknife simulation #" << pass << '/' << passes << '\n';
    }
    const int point = pardef_.takeFirstPoint();
    run_FIT(true);
    pardef_.putPointBack(point);
    sums_.addAll(best_, saved_);
    std::ostringstream block;
    report_SimResult(block, pass);
    appendPass(file, block.str(), "-jack");
  }
  for (int set = 0; set < pardef_.SETsize(); ++set) pardef_.setlDoF(set, pardef_.lDoF(set) + 1);
  // gDoF was not lowered for the passes and yet is raised: later reports divide by one more.
  pardef_.setgDoF(pardef_.gDoF() + 1);
  sums_.finish(jackError, centre_, spread_);
}

void Fit::run_JACKlocal(std::ofstream& file) {
  start_time_ = std::time(nullptr);
  const int passes = pardef_.DATAsize();
  int pass = 0;
  in_pass_ = true;
  pardef_.setgDoF(pardef_.gDoF() - 1);
  for (int set = 0; set < pardef_.SETsize(); ++set) {
    pardef_.setlDoF(set, pardef_.lDoF(set) - 1);
    const int points = static_cast<int>(pardef_.points(set).size());
    for (int j = 1; j <= points; ++j) {
      ++pass;
      if (reportsToConsole()) {
        std::cerr << "\n# Jackknife simulation #" << pass << '/' << passes << " ("
                  << pardef_.TITLE(set) << " #" << j << '/' << points << ")\n";
      }
      // The first entry is left out but the j-th is put back: from the second pass on a point may
      // be left out again and another one stand twice. Repairing this would change the errors,
      // which come out larger than those of a true jackknife.
      const int returned = pardef_.points(set)[asIndex(j - 1)];
      pardef_.takeFirstPoint(set);
      run_localJACK(set);
      calc_covar(best_);
      sums_.addSet(best_, saved_, set, pardef_.parms(set));
      std::ostringstream block;
      report_localJackResult(block, set, j);
      appendPass(file, block.str(), "-jack");
      pardef_.appendPoint(set, returned);
    }
    pardef_.setlDoF(set, pardef_.lDoF(set) + 1);
  }
  sums_.finish(jackError, centre_, spread_);
  pardef_.setgDoF(pardef_.gDoF() + 1);
  in_pass_ = false;
  end_time_ = std::time(nullptr);
}

void Fit::run_localJACK(int set) {
  display_chi_header();
  for (int i = 0; i < method_.size(); ++i) runJackMethod(i, set);
}

void Fit::runJackMethod(int i, int set) {
  const int iter = method_.Iter(i);
  const double scale = method_.Scale(i);
  const bool usable = best_.isFinite();  // else the pass stays as it is
  // The labels have fewer blanks than those of a full fit's methods, which readers can tell apart
  // by.
  const char* label = "";
  switch (method_.Type(i)) {
    case kInit:
      best_ = saved_;
      evaluateStart(i);
      store_chi2("# INIT       X2/DoF = ", chiPerDoF());
      return;
    case kOne:
      if (usable) run_localONE(i, set);
      label = "# ONE          X2/DoF = ";
      break;
    case kOneEx:
      if (usable) run_localONEEX(i, set);
      label = "# ONEEX        X2/DoF = ";
      break;
    case kGrid:
      run_localGRID(i, set);
      label = "# GRID        X2/DoF = ";
      break;
    case kRandom:
      run_localRANDOM(i, set, iter);
      label = "# RANDOM      X2/DoF = ";
      break;
    case kMcMin:
      if (usable) run_localMCMIN(i, set, iter, scale);
      label = "# MCMIN       X2/DoF = ";
      break;
    case kRmcMin:
      run_localRMCMIN(i, set, iter, method_.IterMC(i), scale);
      label = "# RMCMIN      X2/DoF = ";
      break;
    default: return;
  }
  endConsoleLine();
  store_chi2(label, chiPerDoF());
}
