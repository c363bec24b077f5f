// Standard errors.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "Problem.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace {

using problem::data;
using problem::kInf;
using problem::kNaN;
using problem::Options;
using problem::Problem;

/// The inverse of a matrix of n rows of n by Gauss-Jordan elimination with pivoting.
std::vector<double> inverse(std::vector<double> a, std::size_t n) {
  std::vector<double> b(n * n, 0.0);
  for (std::size_t i = 0; i < n; ++i) b[i * n + i] = 1.0;
  for (std::size_t c = 0; c < n; ++c) {
    std::size_t pivot = c;
    for (std::size_t r = c; r < n; ++r) {
      if (std::abs(a[r * n + c]) > std::abs(a[pivot * n + c])) pivot = r;
    }
    for (std::size_t k = 0; k < n; ++k) {
      std::swap(a[c * n + k], a[pivot * n + k]);
      std::swap(b[c * n + k], b[pivot * n + k]);
    }
    const double scale = a[c * n + c];
    for (std::size_t k = 0; k < n; ++k) {
      a[c * n + k] /= scale;
      b[c * n + k] /= scale;
    }
    for (std::size_t r = 0; r < n; ++r) {
      if (r == c) continue;
      const double factor = a[r * n + c];
      for (std::size_t k = 0; k < n; ++k) {
        a[r * n + k] -= factor * a[c * n + k];
        b[r * n + k] -= factor * b[c * n + k];
      }
    }
  }
  return b;
}

/// Errors of all parameters at `at` from one dense matrix over the parameters `free`; 0 for others.
std::vector<double> denseErrors(Problem& problem, const ParSet& at, const std::vector<int>& free) {
  const auto parms = static_cast<std::size_t>(problem.pardef.PAR_size());
  const std::size_t n = free.size();
  std::vector<double> curvature(n * n, 0.0);
  std::vector<double> scratch(16, 0.0);
  for (int point = 0; point < problem.pardef.DATAsize(); ++point) {
    std::vector<double> dydp(parms, 0.0);
    problem.fit().calc_y_dy(at.par, point, dydp, scratch);
    const double dy = problem.pardef.DATA(point).dy;
    for (std::size_t j = 0; j < n; ++j) {
      for (std::size_t k = 0; k < n; ++k) {
        curvature[j * n + k] += dydp[static_cast<std::size_t>(free[j])] *
                                dydp[static_cast<std::size_t>(free[k])] / (dy * dy);
      }
    }
  }
  const std::vector<double> covariance = inverse(curvature, n);
  std::vector<double> errors(parms, 0.0);
  for (std::size_t j = 0; j < n; ++j) {
    errors[static_cast<std::size_t>(free[j])] = std::sqrt(covariance[j * n + j]);
  }
  return errors;
}

std::vector<double> errors(Problem& problem) {
  std::vector<double> all;
  for (int parm = 0; parm < problem.pardef.PAR_size(); ++parm) {
    all.push_back(problem.fit().stdError(parm));
  }
  return all;
}

void expectNear(const std::vector<double>& actual, const std::vector<double>& expected) {
  ASSERT_EQ(actual.size(), expected.size());
  for (std::size_t i = 0; i < actual.size(); ++i) {
    EXPECT_NEAR(actual[i], expected[i], 1e-9 * std::abs(expected[i])) << "parameter " << i;
  }
}

constexpr const char* kLine = "FUNCTION Linear\nMETHOD ONEEX\nSET s\nPAR a 1\nPAR b 1\n";

TEST(StandardErrors, OfALineAreThoseOfLinearRegression) {
  // x = 1, 2, 3, 6, errors 0.5: n = 4, sum x = 12, sum x^2 = 50, determinant 200 - 144 = 56.
  Problem problem(kLine + data(1, 3, 0.5) + data(2, 8, 0.5) + data(3, 5, 0.5) + data(6, 9, 0.5));
  problem.fit().run_FIT(false);
  EXPECT_NEAR(problem.error("s::a"), 0.5 * std::sqrt(50.0 / 56.0), 1e-13);
  EXPECT_NEAR(problem.error("s::b"), 0.5 * std::sqrt(4.0 / 56.0), 1e-13);
}

TEST(StandardErrors, WeighEachPointByItsOwnError) {
  // A mean of values with errors 1, 2 and 1/2: weights 1, 1/4 and 4.
  Problem problem("FUNCTION Constant\nMETHOD ONEEX\nSET s\nPAR c 1\n" + data(0, 3, 1) +
                  data(0, 4, 2) + data(0, 5, 0.5));
  problem.fit().run_FIT(false);
  EXPECT_NEAR(problem.error("s::c"), 1.0 / std::sqrt(5.25), 1e-14);
}

TEST(StandardErrors, AreNotScaledByTheReducedChiSquare) {
  Problem good(kLine + data(0, 1) + data(1, 2) + data(2, 3) + data(3, 4));
  Problem bad(kLine + data(0, 100) + data(1, -200) + data(2, 300) + data(3, -400));
  good.fit().run_FIT(false);
  bad.fit().run_FIT(false);
  ASSERT_GT(bad.fit().best().total(), 1e4);
  EXPECT_DOUBLE_EQ(good.error("s::a"), bad.error("s::a"));
  EXPECT_DOUBLE_EQ(good.error("s::b"), bad.error("s::b"));
}

TEST(StandardErrors, OfACurveAreTheInverseOfItsCurvature) {
  Problem problem("FUNCTION Exp3\nMETHOD ONEEX\nSET s\nPAR a 5\nPAR b -0.5\nPAR c 1\n" +
                  data(0, 9, 0.1) + data(1, 6.1, 0.2) + data(2, 4.2, 0.1) + data(3, 3.3, 0.3) +
                  data(5, 1.8, 0.1));
  problem.fit().run_FIT(false);
  expectNear(errors(problem), denseErrors(problem, problem.fit().best(), {0, 1, 2}));
}

TEST(StandardErrors, FixedParameterHasNone) {
  Problem problem("FUNCTION Linear\nMETHOD ONEEX\nSET s\nFIXED a 1\nPAR b 1\n" + data(1, 3) +
                  data(2, 8) + data(2, 9));
  problem.fit().run_FIT(false);
  EXPECT_EQ(problem.error("s::a"), 0.0);
  // One free parameter: 1 / sqrt(sum x^2).
  EXPECT_NEAR(problem.error("s::b"), 1.0 / 3.0, 1e-14);
}

TEST(StandardErrors, FreeParametersStandInListOrderAroundAFixedOne) {
  // Declared c, b (fixed), a: the fixed one must not take a place between the two others.
  Problem problem("FUNCTION Exp3\nMETHOD ONEEX\nSET s\nPAR c 1\nFIXED b -0.5\nPAR a 5\n" +
                  data(0, 9) + data(1, 6.1) + data(2, 4.2) + data(3, 3.3) + data(5, 1.8));
  problem.fit().run_FIT(false);
  EXPECT_EQ(problem.error("s::b"), 0.0);
  expectNear(errors(problem), denseErrors(problem, problem.fit().best(), {0, 2}));
}

TEST(StandardErrors, UnusedParameterHasNoneAndDoesNotDisturbTheOthers) {
  problem::Captured console(std::cerr);
  Problem problem(
      "FUNCTION CPMG_const\nMETHOD ONEEX\nSET s\nPAR R20_1_2 5 9 1 7\nPAR R20_1_1 1\n"
      "DATA 100 298 1 11 3 1\nDATA 100 298 1 11 4 1\nDATA 100 298 1 11 4 1\n"
      "DATA 100 298 1 11 3 1\n");
  problem.fit().run_FIT(false);
  EXPECT_EQ(console.text(), "WARNING (s): Parameter 'R20_1_2' is not used by any data point\n");
  EXPECT_EQ(problem.error("s::R20_1_2"), 0.0);
  EXPECT_EQ(problem.value("s::R20_1_2"), 7.0);
  EXPECT_DOUBLE_EQ(problem.error("s::R20_1_1"), 0.5);
  EXPECT_NEAR(problem.value("s::R20_1_1"), 3.5, 1e-6);
  // It still counts.
  EXPECT_EQ(problem.pardef.lDoF(0), 2);
  EXPECT_EQ(problem.pardef.gDoF(), 2);
}

TEST(StandardErrors, GlobalThatNoSetRefersToHasNoneButCounts) {
  Problem problem(
      "FUNCTION Linear\nMETHOD ONEEX\nGPAR idle 0 9 1 4\nGPAR slope -9 9 1 1\n"
      "SET s\nPAR a 1\nPAR b slope\n" +
      data(0, 1) + data(1, 3) + data(2, 4) + "SET t\nPAR a 1\nPAR b slope\n" + data(0, 5) +
      data(1, 5) + data(3, 9));
  problem.fit().run_FIT(false);
  EXPECT_EQ(problem.error("GLOBAL::idle"), 0.0);
  EXPECT_EQ(problem.value("GLOBAL::idle"), 4.0);
  EXPECT_EQ(problem.pardef.gDoF(), 6 - 4);
  expectNear(errors(problem), denseErrors(problem, problem.fit().best(), {1, 2, 3}));
}

TEST(StandardErrors, GlobalThatOneSetUsesIsSolvedAsOneOfItsOwn) {
  // The set lists it last, although it stands first in the parameter vector.
  Problem problem(
      "FUNCTION Linear\nMETHOD ONEEX\nGPAR slope -9 9 1 3\nSET s\nPAR a 1\n"
      "PAR b slope\n" +
      data(0, 1) + data(1, 3) + data(2, 5));
  ASSERT_TRUE(problem.fit().is_local());
  problem.fit().run_FIT(false);
  EXPECT_NEAR(problem.value("s::a"), 1.0, 1e-5);
  EXPECT_NEAR(problem.value("GLOBAL::slope"), 2.0, 1e-5);
  EXPECT_NEAR(problem.error("s::a"), std::sqrt(5.0 / 6.0), 1e-13);
  EXPECT_NEAR(problem.error("GLOBAL::slope"), std::sqrt(3.0 / 6.0), 1e-13);
}

TEST(StandardErrors, SharedParameterThatNoPointUsesIsNotSolvedFor) {
  const std::string points =
      "DATA 100 298 1 11 3 1\nDATA 100 298 1 11 5 1\n"
      "DATA 100 298 1 11 4 1\n";
  problem::Captured console(std::cerr);
  Problem problem(
      "FUNCTION CPMG_const\nMETHOD ONEEX\nGPAR far 1 9 1 6\nGPAR near 1 9 1 1\n"
      "SET s\nPAR R20_1_1 near\nPAR R20_1_2 far\n" +
      points + "SET t\nPAR R20_1_1 near\nPAR R20_1_2 far\n" + points);
  problem.fit().run_FIT(false);
  EXPECT_NEAR(problem.value("GLOBAL::near"), 4.0, 1e-5);
  EXPECT_NEAR(problem.error("GLOBAL::near"), 1.0 / std::sqrt(6.0), 1e-13);
  EXPECT_EQ(problem.value("GLOBAL::far"), 6.0);
  EXPECT_EQ(problem.error("GLOBAL::far"), 0.0);
  EXPECT_EQ(console.text().find("ERROR"), std::string::npos) << console.text();
}

/// Two decays with a common rate and three lines of data each, errors times `factor`.
std::string decays(double factor) {
  return "FUNCTION Exp3\nMETHOD ONEEX\nGPAR rate -9 0 1 -0.4\n"
         "SET s\nPAR a 8\nPAR b rate\nPAR c 1\n" +
         data(0, 9, 0.1 * factor) + data(1, 6.1, 0.2 * factor) + data(2, 4.2, 0.1 * factor) +
         data(3, 3.3, 0.3 * factor) + data(5, 1.8, 0.1 * factor) +
         "SET t\nPAR a 8\nPAR b rate\nFIXED c 0.5\n" + data(0, 5, 0.2 * factor) +
         data(1, 3.1, 0.1 * factor) + data(3, 1.6, 0.1 * factor) + data(4, 1.2, 0.1 * factor);
}

TEST(StandardErrors, OfSharedParametersAreTheInverseOfTheWholeCurvature) {
  Problem problem(decays(1.0));
  problem.fit().run_FIT(false);
  // rate, s::a, s::c, t::a; t::c is fixed.
  expectNear(errors(problem), denseErrors(problem, problem.fit().best(), {0, 1, 2, 3}));
  EXPECT_EQ(problem.error("t::c"), 0.0);
}

TEST(StandardErrors, OfSeveralSharedParametersOfDifferentSetsAreTheInverseOfTheWholeCurvature) {
  Problem problem(
      "FUNCTION Exp3\nGPAR rate -9 0 1 -0.4\nGPAR floor -9 9 1 1\n"
      "SET s\nPAR a 8\nPAR b rate\nPAR c 1.1\n" +
      data(0, 9) + data(1, 6) + data(2, 4) + data(3, 3) +
      "SET t\nPAR a 4\nPAR b rate\nPAR c floor\n" + data(0, 5, 0.3) + data(1, 3) + data(3, 2) +
      data(4, 1, 2) + "SET u\nPAR a 5\nPAR b -0.7\nPAR c floor\n" + data(0, 6) + data(1, 3) +
      data(2, 2, 0.4) + data(5, 2));
  const ParSet at = problem.initial();
  problem.fit().calc_covar(at);
  std::vector<int> all;
  for (int parm = 0; parm < problem.pardef.PAR_size(); ++parm) all.push_back(parm);
  expectNear(errors(problem), denseErrors(problem, at, all));
}

TEST(StandardErrors, ScaleWithTheErrorsOfTheDataInALocalFit) {
  const auto line = [](double factor) {
    return kLine + data(1, 3, factor) + data(2, 8, 2 * factor) + data(3, 5, factor) +
           data(6, 9, factor);
  };
  Problem one(line(1));
  Problem ten(line(10));
  one.fit().run_FIT(false);
  ten.fit().run_FIT(false);
  EXPECT_NEAR(ten.error("s::a"), 10 * one.error("s::a"), 1e-12);
  EXPECT_NEAR(ten.error("s::b"), 10 * one.error("s::b"), 1e-12);
}

TEST(StandardErrors, AllScaleWithTheErrorsOfTheDataInAGlobalFit) {
  Problem one(decays(1.0));
  Problem ten(decays(10.0));
  const ParSet at = one.initial();
  one.fit().calc_covar(at);
  ten.fit().calc_covar(at);
  for (const char* name : {"GLOBAL::rate", "s::a", "s::c", "t::a"}) {
    EXPECT_GT(one.error(name), 0.0) << name;
    EXPECT_NEAR(ten.error(name), 10 * one.error(name), 1e-10 * ten.error(name)) << name;
  }
}

// ---- singular curvature ----

TEST(SingularCurvature, OfASetIsNamedAndItsUninvertedDiagonalTakesThePlaceOfTheInverse) {
  // Both points at x = 2: a and b cannot be told apart. Curvature (3 6; 6 12).
  Problem problem("FUNCTION Linear\nSET ill\nPAR a 1\nPAR b 1\n" + data(2, 3) + data(2, 4) +
                  data(2, 5) + "SET well\nPAR a 1\nPAR b 1\n" + data(0, 3) + data(1, 4) +
                  data(2, 5));
  problem::Captured console(std::cerr);
  problem.fit().run_FIT(false);
  EXPECT_EQ(console.text(), "ERROR: Standard deviations cannot be computed for SET 'ill'\n");
  EXPECT_DOUBLE_EQ(problem.error("ill::a"), std::sqrt(3.0));
  EXPECT_DOUBLE_EQ(problem.error("ill::b"), std::sqrt(12.0));
  // The next set is none the worse: n = 3, sum x^2 = 5, determinant 6.
  EXPECT_DOUBLE_EQ(problem.error("well::a"), std::sqrt(5.0 / 6.0));
  EXPECT_DOUBLE_EQ(problem.error("well::b"), std::sqrt(3.0 / 6.0));
}

TEST(SingularCurvature, OfAGlobalFitIsReportedOnceAndTheUninvertedDiagonalStands) {
  // Set s cannot tell a from the slope, and t does not help: its slope is its own.
  Problem problem(
      "FUNCTION Linear\nGPAR S -9 9 1 1\nGPAR I -9 9 1 1\n"
      "SET s\nPAR a I\nPAR b S\n" +
      data(2, 3) + data(2, 4) + data(2, 5) + "SET t\nPAR a I\nPAR b S\n" + data(2, 3) + data(2, 4) +
      data(2, 5, 0.5) + "SET u\nPAR a 1\nPAR b 1\n" + data(0, 3) + data(1, 4) + data(3, 5));
  problem::Captured console(std::cerr);
  const ParSet at = problem.initial();
  problem.fit().calc_covar(at);
  EXPECT_EQ(console.text(), "ERROR: Standard deviations cannot be computed\n");
  EXPECT_DOUBLE_EQ(problem.error("GLOBAL::I"), std::sqrt(5.0 + 4.0));
  EXPECT_DOUBLE_EQ(problem.error("GLOBAL::S"), std::sqrt(4 * 9.0));
  EXPECT_DOUBLE_EQ(problem.error("u::a"), std::sqrt(3.0));
  EXPECT_DOUBLE_EQ(problem.error("u::b"), std::sqrt(10.0));
}

TEST(SingularCurvature, OfOneSetsOwnParametersMakesTheGlobalCurvatureSingular) {
  Problem problem(
      "FUNCTION Exp3\nGPAR rate -9 0 1 -0.5\n"
      "SET s\nPAR a 1\nPAR b rate\nPAR c 1\n" +
      data(0, 3) + data(0, 4) + data(0, 5) + data(0, 5) + "SET t\nPAR a 1\nPAR b rate\nPAR c 1\n" +
      data(0, 3) + data(1, 4) + data(3, 5) + data(4, 5));
  problem::Captured console(std::cerr);
  const ParSet at = problem.initial();
  problem.fit().calc_covar(at);
  EXPECT_EQ(console.text(), "ERROR: Standard deviations cannot be computed\n");
  EXPECT_DOUBLE_EQ(problem.error("s::a"), 2.0);  // four points with dy/da = 1
  EXPECT_DOUBLE_EQ(problem.error("s::c"), 2.0);
}

TEST(SingularCurvature, InfiniteWeightsAreReportedLikeASingularMatrix) {
  // An error of 0: the curvature is infinite and never handed to LAPACK.
  Problem problem("FUNCTION Constant\nSET s\nPAR c 1\n" + data(0, 3, 0) + data(1, 4));
  ParSet at = problem.initial();
  at.setTotal(1.0);
  problem::Captured console(std::cerr);
  problem.fit().calc_covar(at);
  EXPECT_EQ(console.text(), "ERROR: Standard deviations cannot be computed for SET 's'\n");
  EXPECT_EQ(problem.error("s::c"), kInf);
}

// ---- chi-square that is not finite ----

TEST(StandardErrors, AtAChiSquareThatIsNotFiniteEndTheRunWithoutAWord) {
  Problem problem(kLine + data(0, 1) + data(1, 2) + data(2, 3));
  for (const double bad : {kInf, kNaN}) {
    ParSet at = problem.initial();
    at.setTotal(bad);
    EXPECT_EXIT(problem.fit().calc_covar(at), testing::ExitedWithCode(1), testing::Eq(""));
  }
}

TEST(StandardErrors, AllFixedSetsSucceedWithoutAnEmptySystem) {
  problem::Captured console(std::cerr);
  Problem problem("FUNCTION Constant\nMETHOD ONEEX\nSET s\nFIXED c 2\n" + data(0, 1) + data(1, 3));
  problem.fit().run_FIT(false);
  EXPECT_EQ(problem.error("s::c"), 0.0);
  EXPECT_EQ(problem.fit().best().total(), 2.0);
  EXPECT_EQ(console.text(), "WARNING (s): All parameters are fixed\n");
}

TEST(StandardErrors, AllFixedSetBesideAFreeGlobalSucceeds) {
  problem::Captured console(std::cerr);
  Problem problem("FUNCTION Constant\nMETHOD ONEEX\nGPAR C 0 9 1 1\nSET s\nPAR c C\n" + data(0, 1) +
                  data(1, 3) + "SET t\nPAR c C\n" + data(0, 5) + data(1, 7));
  problem.fit().run_FIT(false);
  EXPECT_NEAR(problem.value("GLOBAL::C"), 4.0, 1e-6);
  EXPECT_DOUBLE_EQ(problem.error("GLOBAL::C"), 0.5);
}

}  // namespace
