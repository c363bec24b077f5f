// Monte Carlo error analysis: the fit is repeated on synthetic data, the best-fit curve with
// Gaussian noise of the size of each point's error.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "Fit.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <iostream>
#include <sstream>

namespace {

/// Stands in the ordered lists for the chi-square of a simulation that was dropped: above all
/// others.
constexpr double kDroppedChi = 9.999e99;

}  // namespace

void Fit::run_MONTE() {
  calc_.zero();
  sums_.reset(pardef_.SETsize(), pardef_.PAR_size());
  sorted_chi_.assign(asIndex(pardef_.SETsize()), {});
  const std::vector<double> measured = pardef_.values();
  const std::vector<double> calculated = backCalculate();
  ParSet origin = saved_;  // sums of squares are taken from 0
  origin.zero();
  std::ofstream file = openRunning("-monte");
  const int simulations = calc_.getMonteIter();
  file << "Monte Carlo simulations (" << simulations << ")\n";
  for (int done = 0; done < simulations;) {
    const int k = ++done;
    if (reportsToConsole()) {
      std::cerr << "\n# Monte Carlo simulation #" << k << '/' << simulations << '\n';
    }
    simulateData(calculated);
    run_FIT(true);
    std::ostringstream block;
    storeSimulation(block, k, origin);
    appendPass(file, block.str(), "-monte");
  }
  pardef_.setValues(measured);
  sums_.finish(compute_stdev, centre_, spread_);
  finishRunning(file, "-monte");
}

std::vector<double> Fit::backCalculate() {
  std::vector<double> values;
  values.reserve(asIndex(pardef_.DATAsize()));
  for (int point = 0; point < pardef_.DATAsize(); ++point) {
    values.push_back(calc_y_dy(saved_.par, point, dydp_, scratch_));
  }
  return values;
}

void Fit::simulateData(const std::vector<double>& calculated) {
  std::vector<double> values = calculated;
  for (const int point : pardef_.allPoints()) values[asIndex(point)] += drawNoise(point);
  pardef_.setValues(values);
}

double Fit::drawNoise(int point) {
  const Data& data = pardef_.DATA(point);
  double noise = random_.gaussrand() * data.dy;
  if (funclib_.Get_dist() != 1) return noise;
  // The noise is that of the intensity ratio exp(-R T), relative to it: R + noise with
  // exp(-noise T) = 1 + u. A ratio cannot be negative, so such draws are made again.
  const double T = data.x[asIndex(funclib_.posTau())];
  double u = noise * T;
  while (u <= -1.0) {
    noise = random_.gaussrand() * data.dy;
    u = noise * T;
  }
  return -std::log(1.0 + u) / T;
}

void Fit::storeSimulation(std::ostream& block, int k, const ParSet& origin) {
  const bool finite =
      best_.isFinite() && std::all_of(best_.par.begin(), best_.par.end(),
                                      [](double value) { return std::isfinite(value); });
  for (int set = 0; set < pardef_.SETsize(); ++set) {
    push_sort(sorted_chi_[asIndex(set)], finite ? best_.chi(set) : kDroppedChi);
  }
  if (!finite) {
    std::cerr << "# Simulation hit nan - not storing result\n";
    return;
  }
  sums_.addAll(best_, origin);
  report_SimResult(block, k);
}

double Fit::compute_stdev(double mean, double square_sum, int n) {
  if (n < 2) return 0.0;
  const double variance = (square_sum - n * mean * mean) / (n - 1);
  return variance > 0.0 ? std::sqrt(variance) : 0.0;
}

void Fit::push_sort(std::vector<double>& list, double value) {
  list.insert(std::lower_bound(list.begin(), list.end(), value), value);
}

double Fit::pchi(int set, double fraction) const {
  const std::vector<double>& list = sorted_chi_[asIndex(set)];
  // Rounded half up, which for a count is what the truncation of + 0.5 gives.
  const auto k =
      static_cast<std::size_t>(std::floor(fraction * static_cast<double>(list.size()) + 0.5));
  return k < 2 ? list.front() : list[k - 1];
}
