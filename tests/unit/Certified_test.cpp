// Fits of the NIST Statistical Reference Datasets that the models express.
// SPDX-License-Identifier: GPL-3.0-or-later
//
// Each data file names its set; the data reproduce the certified values in exact arithmetic.
// DanWood, y = b1 x^b2, is fitted as b1 exp(b2 ln x).
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
  double residual_deviation;  ///< square root of the reduced sum of squares
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
  [[nodiscard]] std::string fullName(const Parameter& parameter) const {
    return problem.pardef.TITLE(0) + "::" + parameter.name;
  }
  /// Residual standard deviation of the fit; all errors are 1.
  [[nodiscard]] double residualDeviation() {
    return std::sqrt(problem.fit().best().total() / problem.pardef.gDoF());
  }

  Problem problem;
};

TEST_P(StatisticalReference, ResidualStandardDeviation) {
  EXPECT_GE(digitsAgreed(residualDeviation(), GetParam().residual_deviation), kDigits);
  RecordProperty("digits",
                 std::to_string(digitsAgreed(residualDeviation(), GetParam().residual_deviation)));
}

TEST_P(StatisticalReference, Parameters) {
  for (const Parameter& parameter : GetParam().parameters) {
    const double digits = digitsAgreed(problem.value(fullName(parameter)), parameter.value);
    EXPECT_GE(digits, kDigits) << parameter.name << ' ' << problem.value(fullName(parameter));
    RecordProperty("digits_" + parameter.name, std::to_string(digits));
  }
}

TEST_P(StatisticalReference, StandardDeviationsOfTheParameters) {
  for (const Parameter& parameter : GetParam().parameters) {
    const double deviation = problem.error(fullName(parameter)) * residualDeviation();
    EXPECT_GE(digitsAgreed(deviation, parameter.deviation), kDigits) << parameter.name;
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
        Certified{
            "danwood",
            {{"a", 7.6886226176e-01, 1.8281973860e-02}, {"b", 3.8604055871e+00, 5.1726610913e-02}},
            3.2853114039e-02},
        Certified{"michelso", {{"c", 299.8524, 0.0790105478190518 / 10.0}}, 0.0790105478190518},
        Certified{"numacc1", {{"c", 10000002, 1.0 / std::sqrt(3.0)}}, 1.0},
        Certified{"numacc2", {{"c", 1.2, 0.1 / std::sqrt(1001.0)}}, 0.1},
        Certified{"numacc3", {{"c", 1000000.2, 0.1 / std::sqrt(1001.0)}}, 0.1},
        Certified{"numacc4", {{"c", 10000000.2, 0.1 / std::sqrt(1001.0)}}, 0.1}),
    [](const auto& test) { return test.param.name; });

}  // namespace
