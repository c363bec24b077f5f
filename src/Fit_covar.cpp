// Standard errors of the parameters from the curvature of chi-square.
// SPDX-License-Identifier: GPL-3.0-or-later
//
// The covariance is the inverse of sum_points d_j w^2 d_k over the solved parameters (Gauss-Newton
// curvature; residuals do not enter). A fit with shared parameters has one such matrix,
//
//     | A_1         B_1 |    A_s: the own parameters of set s,
//     |     A_2     B_2 |    B_s: their coupling to the shared ones,
//     | B_1' B_2' .. G  |    G: the shared ones,
//
// whose inverse has (G - sum_s B_s' A_s^-1 B_s)^-1 = S^-1 in the corner and the diagonal blocks
// A_s^-1 + A_s^-1 B_s S^-1 B_s' A_s^-1, so that no block is larger than a set or the shared part.
#include "Fatal.h"
#include "Fit.h"
#include "LinearAlgebra.h"

#include <algorithm>
#include <cmath>
#include <iostream>

void Fit::calc_covar(const ParSet& at) {
  if (!at.isFinite()) {
    if (in_pass_) return;
    fatal("");
  }
  std::fill(std_error_.begin(), std_error_.end(), 0.0);
  if (is_global()) {
    globalCovar(at);
  } else {
    localCovar(at);
  }
}

namespace {

std::size_t square(std::size_t n) { return n * n; }

}  // namespace

std::vector<double> Fit::curvature(const ParSet& at, int set, const std::vector<int>& parms) {
  const std::size_t n = parms.size();
  std::vector<double> matrix(square(n), 0.0);
  for (const int point : pardef_.points(set)) {
    for (const int parm : pardef_.parms(set)) dydp_[asIndex(parm)] = 0.0;
    calc_y_dy(at.par, point, dydp_, scratch_);
    const double w = pardef_.DATA(point).w;
    for (std::size_t j = 0; j < n; ++j) {
      const double weighted = dydp_[asIndex(parms[j])] * (w * w);
      for (std::size_t k = 0; k < n; ++k) {
        matrix[j * n + k] += weighted * dydp_[asIndex(parms[k])];
      }
    }
  }
  return matrix;
}

void Fit::storeErrors(const std::vector<int>& parms, const std::vector<double>& matrix) {
  const std::size_t n = parms.size();
  for (std::size_t j = 0; j < n; ++j) {
    std_error_[asIndex(parms[j])] = std::sqrt(matrix[j * n + j]);
  }
}

std::vector<int> Fit::solvedLocals(int set) const {
  const std::vector<int>& solved = set_mats_[asIndex(set)].parms;  // ascending
  std::vector<int> parms;
  for (const int parm : pardef_.parms(set)) {
    if (std::binary_search(solved.begin(), solved.end(), parm)) parms.push_back(parm);
  }
  return parms;
}

void Fit::localCovar(const ParSet& at) {
  for (int set = 0; set < pardef_.SETsize(); ++set) {
    const std::vector<int> parms = solvedLocals(set);
    std::vector<double> block = curvature(at, set, parms);
    if (LM_inv(static_cast<int>(parms.size()), block) != 0) {
      // The run goes on with the uninverted curvature in the place of the inverse: the fitted
      // values are still worth a report, and the message says that their errors are not.
      std::cerr << "ERROR: Standard deviations cannot be computed for SET '" << pardef_.TITLE(set)
                << "'\n";
    }
    storeErrors(parms, block);
  }
}

/// One set's part of the block matrix above, in terms of n own and m shared parameters.
struct Fit::SetCovar {
  std::vector<int> parms;         ///< own parameters
  std::vector<double> inverse;    ///< A^-1, n rows of n
  std::vector<double> projected;  ///< A^-1 B, n rows of m
};

void Fit::globalCovar(const ParSet& at) {
  const auto globals = global_mat_.parms.size();
  std::vector<double> shared(square(globals), 0.0);  // G, from set to set reduced to S
  std::vector<double> diagonal(std_error_.size(), 0.0);
  std::vector<SetCovar> sets;
  bool inverted = true;
  for (int set = 0; set < pardef_.SETsize(); ++set) {
    inverted = reduceSet(at, set, sets.emplace_back(), shared, diagonal) && inverted;
  }
  inverted = inverted && LM_inv(static_cast<int>(globals), shared) == 0;
  if (!inverted) {
    // As in a local fit: the curvature stands in the place of its inverse.
    std::cerr << "ERROR: Standard deviations cannot be computed\n";
    std::transform(diagonal.begin(), diagonal.end(), std_error_.begin(),
                   [](double curvature) { return std::sqrt(curvature); });
    return;
  }
  storeErrors(global_mat_.parms, shared);
  for (std::size_t set = 0; set < sets.size(); ++set) {
    storeLocalErrors(sets[set], shared_rows_[set], shared);
  }
}

bool Fit::reduceSet(const ParSet& at, int set, SetCovar& own, std::vector<double>& shared,
                    std::vector<double>& diagonal) {
  const std::vector<int>& rows = shared_rows_[asIndex(set)].global_rows;
  own.parms = solvedLocals(set);
  const std::size_t n = own.parms.size();
  const std::size_t m = rows.size();
  std::vector<int> all = own.parms;
  for (const int row : rows) all.push_back(global_mat_.parms[asIndex(row)]);
  const std::vector<double> full = curvature(at, set, all);
  const auto entry = [&](std::size_t j, std::size_t k) { return full[j * (n + m) + k]; };

  for (std::size_t j = 0; j < n + m; ++j) diagonal[asIndex(all[j])] += entry(j, j);
  own.inverse.resize(square(n));
  for (std::size_t j = 0; j < n; ++j) {
    for (std::size_t k = 0; k < n; ++k) own.inverse[j * n + k] = entry(j, k);
  }
  if (LM_inv(static_cast<int>(n), own.inverse) != 0) return false;

  own.projected.assign(n * m, 0.0);
  for (std::size_t j = 0; j < n; ++j) {
    for (std::size_t k = 0; k < m; ++k) {
      for (std::size_t i = 0; i < n; ++i) {
        own.projected[j * m + k] += own.inverse[j * n + i] * entry(i, n + k);
      }
    }
  }
  const std::size_t globals = global_mat_.parms.size();
  for (std::size_t j = 0; j < m; ++j) {
    for (std::size_t k = 0; k < m; ++k) {
      double reduced = entry(n + j, n + k);
      for (std::size_t i = 0; i < n; ++i) reduced -= entry(i, n + j) * own.projected[i * m + k];
      shared[asIndex(rows[j]) * globals + asIndex(rows[k])] += reduced;
    }
  }
  return true;
}

void Fit::storeLocalErrors(const SetCovar& own, const SharedRows& shared_rows,
                           const std::vector<double>& shared_inverse) {
  const std::vector<int>& rows = shared_rows.global_rows;
  const std::size_t n = own.parms.size();
  const std::size_t m = rows.size();
  const std::size_t globals = global_mat_.parms.size();
  for (std::size_t j = 0; j < n; ++j) {
    double variance = own.inverse[j * n + j];
    const double* const projected = own.projected.data() + j * m;
    for (std::size_t k = 0; k < m; ++k) {
      const double* const row = shared_inverse.data() + asIndex(rows[k]) * globals;
      for (std::size_t l = 0; l < m; ++l) {
        variance += projected[k] * row[asIndex(rows[l])] * projected[l];
      }
    }
    std_error_[asIndex(own.parms[j])] = std::sqrt(variance);
  }
}
