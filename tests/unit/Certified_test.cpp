// Fits of the NIST Statistical Reference Datasets that the models express.
// SPDX-License-Identifier: GPL-3.0-or-later
//
// Each data file names its set, and how a nonlinear one is written as a model of the program; these
// files hold one set for each of the two published starts. tests/accuracy/strd.py checks the files
// in exact arithmetic and carries certified values and deviations over to the parameters of the
// model.
#include "Problem.h"

#include <cmath>
#include <string>
#include <vector>

namespace {

using problem::digitsAgreed;
using problem::Problem;
using problem::readFile;

constexpr double kDigits = 6.5;

/// The certified value and standard deviation of one parameter.
struct Parameter {
  std::string name;
  double value;
  double deviation;
};

struct Certified {
  std::string name;
  std::vector<Parameter> parameters;
  double residual_deviation;  ///< square root of the reduced chi-square
};

/// Without it GoogleTest prints the bytes, padding that was never set among them.
void PrintTo(const Certified& certified, std::ostream* out) { *out << certified.name; }

class StatisticalReference : public testing::TestWithParam<Certified> {
 protected:
  StatisticalReference()
      : problem(readFile(std::string(DRAVO_SOURCE_DIR) + "/tests/data/strd_" + GetParam().name +
                         ".in")) {
    problem.fit().run_FIT(false);
  }
  [[nodiscard]] std::string fullName(int set, const Parameter& parameter) const {
    return problem.pardef.TITLE(set) + "::" + parameter.name;
  }
  /// Residual standard deviation of a set's fit, in units of its errors.
  [[nodiscard]] double residualDeviation(int set) {
    const int points = problem.pardef.DATAsize() / problem.pardef.SETsize();
    const int parameters = static_cast<int>(GetParam().parameters.size());
    return std::sqrt(problem.fit().best().chi(set) / (points - parameters));
  }

  Problem problem;
};

TEST_P(StatisticalReference, ResidualStandardDeviation) {
  for (int set = 0; set < problem.pardef.SETsize(); ++set) {
    EXPECT_GE(digitsAgreed(residualDeviation(set), GetParam().residual_deviation), kDigits) << set;
  }
}

TEST_P(StatisticalReference, Parameters) {
  for (int set = 0; set < problem.pardef.SETsize(); ++set) {
    for (const Parameter& parameter : GetParam().parameters) {
      const double value = problem.value(fullName(set, parameter));
      EXPECT_GE(digitsAgreed(value, parameter.value), kDigits)
          << fullName(set, parameter) << ' ' << value;
    }
  }
}

TEST_P(StatisticalReference, StandardDeviationsOfTheParameters) {
  for (int set = 0; set < problem.pardef.SETsize(); ++set) {
    for (const Parameter& parameter : GetParam().parameters) {
      const double deviation = problem.error(fullName(set, parameter)) * residualDeviation(set);
      EXPECT_GE(digitsAgreed(deviation, parameter.deviation), kDigits) << fullName(set, parameter);
    }
  }
}

// The standard deviation of a mean is that of the values over the root of their number.
INSTANTIATE_TEST_SUITE_P(
    Strd, StatisticalReference,
    testing::Values(
        Certified{"norris",
                  {{"a", -0.262323073774029, 0.232818234301152},
                   {"b", 1.00211681802045, 0.000429796848199937}},
                  0.884796396144373},
        Certified{"noint1", {{"b", 2.07438016528926, 0.0165289256198347}}, 3.56753034006338},
        Certified{"noint2", {{"b", 0.727272727272727, 0.0420827318078432}}, 0.369274472937998},
        // Errors of the nonlinear sets are the certified residual standard deviation.
        Certified{"misra1a",
                  {{"k", 1.314555492e-4, 2.5957582927e-7}, {"R1a", 5.5500249763, 7.2666199378e-3}},
                  1.0},
        Certified{"misra1d",
                  {{"phi", 760.41128609, 2.6632725495}, {"kex", 5751.7519209, 27.909173703}},
                  1.0},
        Certified{"danwood",
                  {{"a", 0.76886226176, 0.018281973860}, {"b", 3.8604055871, 0.051726610913}},
                  1.0},
        Certified{"boxbod",
                  {{"k", 1.1700452328e-4, 1.8024159962e-5}, {"R1a", 2.5471204809, 0.10454251095}},
                  1.0},
        Certified{"rat42",
                  {{"a1", 0.072462237576, 1.7340283401e-3},
                   {"tm", 161.13260197, 1.1794406321},
                   {"m", 14.845782002, 0.75961371949}},
                  1.0},
        Certified{"lew", {{"c", -177.435, 277.332168044316 / std::sqrt(200.0)}}, 277.332168044316},
        Certified{"lottery",
                  {{"c", 518.958715596330, 291.699727470969 / std::sqrt(218.0)}},
                  291.699727470969},
        Certified{"mavro",
                  {{"c", 2.001856, 0.000429123454003053 / std::sqrt(50.0)}},
                  0.000429123454003053},
        Certified{"michelso", {{"c", 299.8524, 0.0790105478190518 / 10.0}}, 0.0790105478190518},
        Certified{"numacc1", {{"c", 10000002, 1.0 / std::sqrt(3.0)}}, 1.0},
        Certified{"numacc2", {{"c", 1.2, 0.1 / std::sqrt(1001.0)}}, 0.1},
        Certified{"numacc3", {{"c", 1000000.2, 0.1 / std::sqrt(1001.0)}}, 0.1},
        Certified{"numacc4", {{"c", 10000000.2, 0.1 / std::sqrt(1001.0)}}, 0.1}),
    [](const auto& test) { return test.param.name; });

// A parameter that a fit drives to the end of its legal range is seen in the report.

constexpr double kMisra1aChi2 =
    12.0;  // its degrees of freedom, errors being those of the residuals

std::string rangeInput() {
  return readFile(std::string(DRAVO_SOURCE_DIR) + "/tests/data/strd_misra1a_range.in");
}

TEST(CertifiedRange, StopsMisra1aFromItsFirstStart) {
  Problem problem(rangeInput());
  problem.fit().run_FIT(false);
  EXPECT_LT(problem.value("Misra1a_1::R1a"), 1e-9);
  EXPECT_GT(problem.fit().best().chi(0), 1e4 * kMisra1aChi2);
  EXPECT_GE(digitsAgreed(problem.fit().best().chi(1), kMisra1aChi2), kDigits);
  EXPECT_GE(digitsAgreed(problem.value("Misra1a_2::k"), 1.314555492e-4), kDigits);
}

TEST(CertifiedRange, GridLeadsMisra1aToItsMinimumAllTheSame) {
  std::string input = rangeInput();
  input.replace(input.find("\nMETHOD ONEEX"), 13, "\nMETHOD GRID");
  Problem problem(input);
  problem.fit().run_FIT(false);
  for (const int set : {0, 1}) {
    EXPECT_GE(digitsAgreed(problem.fit().best().chi(set), kMisra1aChi2), kDigits) << set;
  }
  EXPECT_GE(digitsAgreed(problem.value("Misra1a_1::k"), 1.314555492e-4), kDigits);
}

}  // namespace
