// Levenberg-Marquardt minimisation of chi-square, of one set or nested for shared parameters.
// SPDX-License-Identifier: GPL-3.0-or-later
//
// Damped Gauss-Newton steps from analytic derivatives; the damping is multiplicative on the
// diagonal (Marquardt, J. Soc. Ind. Appl. Math. 11, 431 (1963)), its start is scaled by the largest
// diagonal element, and it shrinks by 4 on success and grows by 2, 4, 8, ... on repeated failure
// (Nielsen, Report IMM-REP-1999-05, Technical University of Denmark, for the growth).
#include "Fit.h"
#include "LinearAlgebra.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace {

constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr int kMaxRounds = 300;             // every outcome of a step counts as a round
constexpr double kMinGain = 1e-12;          // stop: chi_best - chi_new < kMinGain
constexpr double kMinGradient = 1e-15;      // stop: every |beta_j| <= kMinGradient
constexpr double kMinRelativeStep = 1e-15;  // stop: every |step_j| <= kMinRelativeStep |p_j|
constexpr double kFirstDamping = 1e-8;      // lambda = kFirstDamping max(1, alpha_jj)

}  // namespace

void LevMar::resize(int parms) {
  n = parms;
  const auto size = static_cast<std::size_t>(parms);
  alpha.assign(size * size, 0.0);
  beta.assign(size, 0.0);
}

double Fit::minimize_local(ParSet& at, int set) {
  return LevMarq(at, trial_, pardef_.points(set), pardef_.parms(set), set_mats_[asIndex(set)],
                 outer_lm_, outer_trial_lm_, &Fit::lMarq);
}

double Fit::minimize_global(ParSet& at) {
  // The builder takes data and parameters from the sets it walks through.
  static const std::vector<int> kNone;
  return LevMarq(at, trial_, kNone, kNone, global_mat_, outer_lm_, outer_trial_lm_, &Fit::gMarq);
}

double Fit::LevMarq(ParSet& best, ParSet& trial, const std::vector<int>& data,
                    const std::vector<int>& parms, const FitMat& mat, LevMar& lm, LevMar& trial_lm,
                    Builder build) {
  double chi_best = (this->*build)(best, data, parms, mat, lm);
  if (!std::isfinite(chi_best)) return kInf;
  double lambda = startLambda(mat, lm);
  double growth = 2.0;
  moveTo(best, parms, mat, trial);
  for (int round = 0; round < kMaxRounds; ++round) {
    if (gradientVanishes(mat, lm)) break;
    if (!solveStep(mat, lm, lambda)) {
      lambda *= 2.0;
      continue;
    }
    if (stepIsNegligible(mat, best)) break;
    if (!applyStep(mat, best, trial)) {  // the step left the legal range: it is never evaluated
      lambda *= 2.0;
      continue;
    }
    const double chi_new = (this->*build)(trial, data, parms, mat, trial_lm);
    if (!std::isfinite(chi_new) || chi_new >= chi_best) {
      lambda *= growth;
      growth *= 2.0;
      continue;
    }
    // The last, tiny gain is reported but not moved to: best keeps the point before it.
    if (chi_best - chi_new < kMinGain) return chi_new;
    moveTo(trial, parms, mat, best);
    std::swap(lm, trial_lm);  // with the rows of the parameters that were not solved for
    chi_best = chi_new;
    lambda *= 0.25;
    growth = 2.0;
  }
  return chi_best;
}

void Fit::moveTo(const ParSet& from, const std::vector<int>& parms, const FitMat& mat, ParSet& to) {
  if (mat.set == FitMat::kAllSets) {
    to = from;  // carries the re-minimised values and chi-squares of all sets along
  } else {
    to.copyValues(from, parms);
  }
}

double Fit::startLambda(const FitMat& mat, const LevMar& lm) {
  double largest = 1.0;
  for (const int row : mat.rows) largest = std::max(largest, lm.at(row, row));
  return kFirstDamping * (mat.rows.empty() ? 1.0 : largest);
}

bool Fit::gradientVanishes(const FitMat& mat, const LevMar& lm) {
  return std::all_of(mat.rows.begin(), mat.rows.end(),
                     [&](int row) { return std::abs(lm.beta[asIndex(row)]) <= kMinGradient; });
}

bool Fit::solveStep(const FitMat& mat, const LevMar& lm, double lambda) {
  const std::size_t n = mat.rows.size();
  for (std::size_t j = 0; j < n; ++j) {
    solved_beta_[j] = lm.beta[asIndex(mat.rows[j])];
    for (std::size_t k = 0; k < n; ++k) {
      solved_alpha_[j * n + k] = lm.at(mat.rows[j], mat.rows[k]);
    }
  }
  return LM_solv(mat.size(), solved_alpha_, solved_beta_, step_, lambda) == 0;
}

bool Fit::stepIsNegligible(const FitMat& mat, const ParSet& best) const {
  for (std::size_t j = 0; j < mat.parms.size(); ++j) {
    const double value = best.par[asIndex(mat.parms[j])];
    if (!(std::abs(step_[j]) <= kMinRelativeStep * std::abs(value))) return false;
  }
  return true;
}

bool Fit::applyStep(const FitMat& mat, const ParSet& best, ParSet& trial) const {
  for (std::size_t j = 0; j < mat.parms.size(); ++j) {
    const int parm = mat.parms[j];
    const double value = best.par[asIndex(parm)] + step_[j];
    trial.par[asIndex(parm)] = value;
    if (!pardef_.isLegal(parm, value)) return false;
  }
  return true;
}

// ---- normal equations ----

double Fit::lMarq(ParSet& at, const std::vector<int>& data, const std::vector<int>& parms,
                  const FitMat& /*mat*/, LevMar& lm) {
  lm.resize(static_cast<int>(parms.size()));
  double chi = 0.0;
  for (const int point : data) {
    const Footprint& touched = footprints_[asIndex(footprint_of_[asIndex(point)])];
    for (const int parm : touched.parms) dydp_[asIndex(parm)] = 0.0;
    const double y = calc_y_dy(at.par, point, dydp_, scratch_);
    if (!std::isfinite(y)) return kInf;
    const Data& measured = pardef_.DATA(point);
    const double residual = measured.y - y;
    const double weight2 = measured.w * measured.w;
    if (!addPoint(touched, residual, weight2, lm)) return kInf;
    chi += residual * residual * weight2;
  }
  return chi;
}

namespace {

/// row[k] += slopes[k] * factor, two at a time: compilers make one vector operation of each pair.
void addMultiple(double* __restrict row, const double* __restrict slopes, double factor,
                 std::size_t n) {
  std::size_t k = 0;
  for (; k + 1 < n; k += 2) {
    row[k] += slopes[k] * factor;
    row[k + 1] += slopes[k + 1] * factor;
  }
  if (k < n) row[k] += slopes[k] * factor;
}

}  // namespace

bool Fit::addPoint(const Footprint& touched, double residual, double weight2, LevMar& lm) {
  const auto n = asIndex(lm.n);
  double* const slopes = slopes_.data();
  std::fill_n(slopes, n, 0.0);
  const std::size_t size = touched.rows.size();
  for (std::size_t i = 0; i < size; ++i) {
    const double slope = dydp_[asIndex(touched.parms[i])];
    if (!std::isfinite(slope)) return false;
    slopes[touched.rows[i]] = slope;
  }
  double* const beta = lm.beta.data();
  for (const int j : touched.rows) {  // the other rows would only gain zeros
    const double weighted = slopes[j] * weight2;
    beta[j] += weighted * residual;
    addMultiple(lm.row(j), slopes, weighted, n);
  }
  return true;
}

double Fit::gMarq(ParSet& at, const std::vector<int>& /*data*/, const std::vector<int>& /*parms*/,
                  const FitMat& mat, LevMar& lm) {
  lm.resize(mat.size());
  for (int set = 0; set < pardef_.SETsize(); ++set) {
    const double chi = LevMarq(at, nested_trial_, pardef_.points(set), pardef_.parms(set),
                               set_mats_[asIndex(set)], nested_lm_, nested_trial_lm_, &Fit::lMarq);
    at.setChi(set, chi);
    if (!std::isfinite(chi)) return kInf;
    addSharedRows(shared_rows_[asIndex(set)], nested_lm_, lm);
  }
  return at.total();
}

void Fit::addSharedRows(const SharedRows& shared, const LevMar& from, LevMar& to) {
  const std::size_t n = shared.set_rows.size();
  for (std::size_t j = 0; j < n; ++j) {
    const int from_row = shared.set_rows[j];
    to.beta[asIndex(shared.global_rows[j])] += from.beta[asIndex(from_row)];
    double* const row = to.row(shared.global_rows[j]);
    for (std::size_t k = 0; k < n; ++k) {
      row[shared.global_rows[k]] += from.at(from_row, shared.set_rows[k]);
    }
  }
}
