// Fits of synthetic data: points with known noise, the input text around them, the fitted values.
// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "Problem.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <numbers>
#include <random>
#include <string>
#include <vector>

namespace synthetic {

/// Normal deviates that are the same everywhere: std::normal_distribution differs among libraries.
class Noise {
 public:
  explicit Noise(std::uint32_t seed) : engine_(seed) {}

  double operator()() {
    const double radius = std::sqrt(-2.0 * std::log(uniform()));
    return radius * std::cos(2.0 * std::numbers::pi * uniform());
  }

 private:
  /// Uniform in (0, 1).
  double uniform() { return (static_cast<double>(engine_()) + 0.5) / 4294967296.0; }

  std::mt19937 engine_;
};

/// The DATA line of a point. A model without labels has no token for them, but one more at the end.
inline std::string dataLine(const std::vector<double>& x, const std::string& labels, double y,
                            double error) {
  std::string line = "DATA";
  for (const double value : x) line += ' ' + problem::text(value);
  if (!labels.empty()) line += ' ' + labels;
  line += ' ' + problem::text(y) + ' ' + problem::text(error);
  return line + (labels.empty() ? " .\n" : "\n");
}

/// A problem fitted by the METHOD lines of its own input text.
class Fitted {
 public:
  explicit Fitted(const std::string& input) : problem_(input) { problem_.fit().run_FIT(false); }

  [[nodiscard]] double chi2() { return problem_.fit().best().total(); }
  [[nodiscard]] int dof() const { return problem_.pardef.gDoF(); }
  /// `name` with its scope, as "residue::kex_1" or "GLOBAL::k".
  [[nodiscard]] double value(const std::string& name) const { return problem_.value(name); }
  [[nodiscard]] double error(const std::string& name) const { return problem_.error(name); }

 private:
  problem::Problem problem_;
};

/// The parameter lies within 4 standard errors of the truth, and these are below `relative` of it.
inline void expectRecovered(const Fitted& fit, const std::string& name, double truth,
                            double relative) {
  const double error = fit.error(name);
  EXPECT_GT(error, 0.0) << name;
  EXPECT_LT(error, relative * std::abs(truth)) << name;
  EXPECT_LE(std::abs(fit.value(name) - truth), 4.0 * error)
      << name << " is " << fit.value(name) << " +- " << error << ", truth " << truth;
}

/// Chi-square lies within 4 of its standard deviations, sqrt(2 dof), of the degrees of freedom.
inline void expectChi2OfNoise(Fitted& fit) {
  const double dof = fit.dof();
  EXPECT_GT(dof, 0.0);
  EXPECT_LE(std::abs(fit.chi2() - dof), 4.0 * std::sqrt(2.0 * dof)) << fit.chi2();
}

}  // namespace synthetic
