// Measured R1rho rates of one residue fitted as in examples/, against the minima that independent
// least-squares fits of the same numbers found.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "SyntheticFit.h"

#include <gtest/gtest.h>

#include <cmath>
#include <ostream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace {

/// A file of examples/ with another model, and without the random search that follows its grid: the
/// best grid point already leads to the minimum.
std::string exampleText(const std::string& name, const std::string& model) {
  std::istringstream file(problem::readFile(std::string(DRAVO_SOURCE_DIR) + "/examples/" + name));
  std::string text;
  for (std::string line; std::getline(file, line);) {
    if (line.rfind("FUNCTION", 0) == 0) line = "FUNCTION " + model;
    if (line.rfind("METHOD MCMIN", 0) == 0) continue;
    text += line + '\n';
  }
  return text;
}

const std::string kOn = "fyn_t14_r1rho_on.in";
const std::string kOff = "fyn_t14_r1rho_off.in";
const std::string kShift = "dw";

struct Minimum {
  std::string file;
  const char* set;
  const char* model;
  double chi2;
  double relative;  ///< how far parameters move when chi-square rises by 1e-6 of itself
  int dof;
  std::vector<std::pair<const char*, double>> parms;
};

void PrintTo(const Minimum& minimum, std::ostream* stream) { *stream << minimum.model; }

class RealDataR1rho : public testing::TestWithParam<Minimum> {};

TEST_P(RealDataR1rho, FitsToTheMinimumOfAnIndependentProgram) {
  const Minimum& expected = GetParam();
  synthetic::Fitted fit(exampleText(expected.file, expected.model));
  EXPECT_EQ(fit.dof(), expected.dof);
  EXPECT_NEAR(fit.chi2(), expected.chi2, 1e-6 * expected.chi2);
  for (const auto& [name, value] : expected.parms) {
    double fitted = fit.value(std::string(expected.set) + "::" + name);
    // On resonance the sign of the shift difference has no effect: the fit may end at either.
    if (name == kShift && expected.file == kOn) fitted = std::abs(fitted);
    EXPECT_NEAR(fitted, value, expected.relative * value) << name;
  }
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Fyn, RealDataR1rho, testing::Values(
    Minimum{kOn, "T14on", "R1RHO_PALMER02_ON", 60.891676, 1e-3, 80 - 5,
            {{"dw", 1470.515}, {"kex", 841.029}, {"pB", 0.02592788},
             {"R20_1_1", 11.16704}, {"R20_1_2", 15.12605}}},
    Minimum{kOn, "T14on", "R1RHO_PALMER05_ON", 63.315908, 1e-3, 80 - 5,
            {{"dw", 1500.900}, {"kex", 875.060}, {"pB", 0.02428253},
             {"R20_1_1", 11.14551}, {"R20_1_2", 15.08806}}},
    Minimum{kOff, "T14", "R1RHO_PALMER02", 472.400508, 5e-4, 327 - 7,
            {{"dw", 1645.889}, {"kex", 367.9817}, {"pB", 0.05408765},
             {"R20_1_1", 9.10806}, {"R20_1_2", 13.79321}, {"R1_1_1", 3.17905}, {"R1_1_2", 4.45284}}},
    Minimum{kOff, "T14", "R1RHO_PALMER05", 503.804176, 5e-4, 327 - 7,
            {{"dw", 1648.666}, {"kex", 373.535}, {"pB", 0.0503742},
             {"R20_1_1", 9.25364}, {"R20_1_2", 14.00424}, {"R1_1_1", 3.35940}, {"R1_1_2", 4.48480}}}),
    [](const auto& test) { return std::string(test.param.model); });
// clang-format on

}  // namespace
