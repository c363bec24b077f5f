// Forward differences: which evaluations are made, with which parameters, and what is written.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "ForwardDifferences.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <limits>
#include <utility>
#include <vector>

namespace {

constexpr double kUntouched = -1.25e99;
constexpr std::size_t kParms = 3;

/// One evaluation: its slot and the parameters it saw.
using Seen = std::pair<std::size_t, std::vector<double>>;
std::vector<Seen> evaluations;

/// 3 p0 + p1^2 + p2
double curve(const Data& /*d*/, const double* p, std::size_t slot) {
  evaluations.emplace_back(slot, std::vector<double>(p, p + kParms));
  return 3.0 * p[0] + p[1] * p[1] + p[2];
}

struct Result {
  double value;
  std::vector<double> dydp;
  std::vector<double> p;
};

/// The parameters stand at positions 4, 1 and 2 of a vector of six.
class ForwardDifferences : public testing::Test {
 protected:
  ForwardDifferences() {
    evaluations.clear();
    d_.parmap = {4, 1, 2};
  }
  Result run(std::vector<double> p, std::size_t addend = 2, std::vector<std::size_t> masked = {}) {
    std::vector<double> dydp(6, kUntouched);
    std::vector<bool> skip(6, false);
    for (const std::size_t position : masked) skip[position] = true;
    const double value = forwardDifferences(curve, kParms, addend, d_, p.data(), dydp, skip);
    return {value, dydp, p};
  }
  Data d_;
};

TEST_F(ForwardDifferences, QuotientHasAStepOfABillionthOfTheMagnitude) {
  const std::vector<double> p = {2.0, -5.0, 7.0};
  const Result r = run(p);
  EXPECT_EQ(r.value, 3.0 * 2.0 + 25.0 + 7.0);
  const double h0 = 1e-9 * 2.0, h1 = 1e-9 * 5.0;
  ASSERT_EQ(evaluations.size(), 3U);
  EXPECT_EQ(evaluations[0], Seen(0, p));
  EXPECT_EQ(evaluations[1], Seen(1, {2.0 + h0, -5.0, 7.0}));
  EXPECT_EQ(evaluations[2], Seen(2, {2.0, -5.0 + h1, 7.0}));  // a step upwards for a negative one
  EXPECT_EQ(r.dydp[4], (3.0 * (2.0 + h0) + 25.0 + 7.0 - 38.0) / h0);
  EXPECT_EQ(r.dydp[1], (6.0 + (-5.0 + h1) * (-5.0 + h1) + 7.0 - 38.0) / h1);
  EXPECT_NEAR(r.dydp[4], 3.0, 1e-5);
  EXPECT_NEAR(r.dydp[1], -10.0, 1e-5);
}

TEST_F(ForwardDifferences, AddendHasDerivativeOneWithoutAnEvaluation) {
  EXPECT_EQ(run({2.0, -5.0, 0.0}).dydp[2], 1.0);  // whatever its value is
  for (const Seen& seen : evaluations) EXPECT_LT(seen.first, 3U);
}

TEST_F(ForwardDifferences, WithoutAddendEveryParameterIsShifted) {
  const Result r = run({2.0, -5.0, 7.0}, kNoAddend);
  ASSERT_EQ(evaluations.size(), 4U);
  EXPECT_EQ(evaluations[3], Seen(3, {2.0, -5.0, 7.0 + 1e-9 * 7.0}));
  EXPECT_NE(r.dydp[2], 1.0);  // a quotient with its rounding, not the known number
  EXPECT_NEAR(r.dydp[2], 1.0, 1e-5);
}

TEST_F(ForwardDifferences, OtherEntriesOfTheVectorAreLeftAlone) {
  const Result r = run({2.0, -5.0, 7.0});
  for (const std::size_t position : {0U, 3U, 5U}) EXPECT_EQ(r.dydp[position], kUntouched);
}

TEST_F(ForwardDifferences, ParametersAreRestoredToTheBit) {
  const std::vector<double> p = {0.1, -1.0 / 3.0, 1e300};  // p + h - h differs from p in the first
  EXPECT_EQ(run(p).p, p);
  EXPECT_TRUE(std::signbit(run({-0.0, 1.0, 1.0}).p[0]));
}

TEST_F(ForwardDifferences, ZeroParameterHasADerivativeThatIsNotFinite) {
  const Result r = run({0.0, -5.0, 7.0});
  EXPECT_TRUE(std::isnan(r.dydp[4]));
  EXPECT_NEAR(r.dydp[1], -10.0, 1e-5);
}

TEST_F(ForwardDifferences, MaskedParametersAreNotEvaluated) {
  const Result r = run({2.0, -5.0, 7.0}, 2, {4});
  ASSERT_EQ(evaluations.size(), 2U);
  EXPECT_EQ(evaluations[1].first, 2U);
  EXPECT_EQ(r.dydp[4], kUntouched);
  EXPECT_NE(r.dydp[1], kUntouched);
}

TEST_F(ForwardDifferences, MaskedAddendIsNotWritten) {
  EXPECT_EQ(run({2.0, -5.0, 7.0}, 2, {2}).dydp[2], kUntouched);
}

TEST_F(ForwardDifferences, MaskIsReadAtThePositionInTheVector) {
  const Result r = run({2.0, -5.0, 7.0}, 2, {0});  // nobody's position
  EXPECT_EQ(evaluations.size(), 3U);
  EXPECT_NE(r.dydp[4], kUntouched);
}

TEST_F(ForwardDifferences, EverythingMaskedCostsOneEvaluation) {
  EXPECT_EQ(run({2.0, -5.0, 7.0}, 2, {4, 1, 2}).value, 38.0);
  EXPECT_EQ(evaluations.size(), 1U);
}

TEST_F(ForwardDifferences, EmptyVectorAsksForTheValueAlone) {
  std::vector<double> p = {2.0, -5.0, 7.0};
  std::vector<double> none;
  EXPECT_EQ(forwardDifferences(curve, kParms, 2, d_, p.data(), none, std::vector<bool>(6)), 38.0);
  EXPECT_TRUE(none.empty());
  EXPECT_EQ(evaluations.size(), 1U);
}

}  // namespace
