// Candidate solutions: lengths, copies, totals, refused sets.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "ParSet.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

namespace {

constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
constexpr double kMax = std::numeric_limits<double>::max();

using Values = std::vector<double>;
const std::vector<int> kNoPositions;

ParSet withChis(const Values& chis, std::size_t parms = 0) {
  ParSet set;
  set.resize(chis.size(), parms);
  for (std::size_t s = 0; s < chis.size(); ++s) set.setChi(static_cast<int>(s), chis[s]);
  return set;
}

Values chisOf(const ParSet& set) {
  Values chis;
  for (std::size_t s = 0; s < set.sets(); ++s) chis.push_back(set.chi(static_cast<int>(s)));
  return chis;
}

// ---- lengths ----

TEST(ParSet, NewObjectIsEmptyWithTotalZero) {
  const ParSet set;
  EXPECT_EQ(set.sets(), 0U);
  EXPECT_TRUE(set.par.empty());
  EXPECT_EQ(set.total(), 0.0);
  EXPECT_TRUE(set.isFinite());
}

TEST(ParSet, ResizeTakesSetsBeforeParametersAndFillsWithZero) {
  ParSet set;
  set.resize(2, 7);
  EXPECT_EQ(chisOf(set), (Values{0, 0}));
  EXPECT_EQ(set.par, Values(7, 0.0));
}

TEST(ParSet, ResizeKeepsWhatFits) {
  ParSet set = withChis({1.5, 2.5}, 7);
  set.par = {1, 2, 3, 4, 5, 6, 7};
  set.resize(3, 5);
  EXPECT_EQ(chisOf(set), (Values{1.5, 2.5, 0.0}));
  EXPECT_EQ(set.par, (Values{1, 2, 3, 4, 5}));
}

TEST(ParSet, ZeroClearsEverythingButTheLengths) {
  ParSet set = withChis({1.5, kInf}, 2);
  set.par = {3, 4};
  set.setTotal(50.0);
  set.zero();
  EXPECT_EQ(chisOf(set), (Values{0, 0}));
  EXPECT_EQ(set.par, (Values{0, 0}));
  EXPECT_EQ(set.total(), 0.0);
  EXPECT_TRUE(set.isFinite());
}

TEST(ParSet, AssignmentCopiesValuesChisAndTotal) {
  ParSet source = withChis({1.0, 2.0}, 1);
  source.par = {9.0};
  source.setTotal(40.0);
  ParSet target;
  target = source;
  source.zero();
  EXPECT_EQ(chisOf(target), (Values{1, 2}));
  EXPECT_EQ(target.par, Values{9.0});
  EXPECT_EQ(target.total(), 40.0);
}

// ---- copying one set ----

TEST(ParSet, CopyTakesTheValuesAtThePositionsAndTheChiOfTheSet) {
  ParSet source = withChis({10, 20, 30}, 4);
  source.par = {1, 2, 3, 4};
  ParSet target = withChis({100, 200, 300}, 4);
  target.par = {-1, -2, -3, -4};
  target.copy(source, std::vector<int>{3, 1}, 1);
  EXPECT_EQ(target.par, (Values{-1, 2, -3, 4}));
  EXPECT_EQ(chisOf(target), (Values{100, 20, 300}));
  EXPECT_EQ(target.total(), 420.0);
}

TEST(ParSet, CopyWithoutPositionsStillTakesTheChiAndRefreshesTheTotal) {
  const ParSet source = withChis({1, 2}, 1);
  ParSet target = withChis({5, 7}, 1);
  target.par = {3};
  target.setTotal(1000.0);
  target.copy(source, kNoPositions, 1);
  EXPECT_EQ(chisOf(target), (Values{5, 2}));
  EXPECT_EQ(target.total(), 7.0);
  EXPECT_EQ(target.par, Values{3});
}

TEST(ParSet, CopyValuesLeavesChisAndTotalAlone) {
  ParSet source = withChis({1}, 2);
  source.par = {8, 9};
  ParSet target = withChis({5}, 2);
  target.setTotal(6.0);
  target.copyValues(source, std::vector<int>{1});
  EXPECT_EQ(target.par, (Values{0, 9}));
  EXPECT_EQ(target.chi(0), 5.0);
  EXPECT_EQ(target.total(), 6.0);
}

// ---- totals ----

TEST(ParSet, RecalcOfAnEmptyListGivesZero) {
  ParSet set;
  set.setTotal(5.0);
  set.recalc_chi();
  EXPECT_EQ(set.total(), 0.0);
}

TEST(ParSet, RecalcMakesTheTotalTheSumAgain) {
  ParSet set = withChis({1, 2, 4});
  set.setTotal(99.0);
  EXPECT_EQ(set.total(), 99.0);
  set.recalc_chi();
  EXPECT_EQ(set.total(), 7.0);
}

TEST(ParSet, TotalIsSummedFromSetZeroUpward) {
  EXPECT_EQ(withChis({1e16, 1.0, 1.0}).total(), 1e16);        // each 1 is lost
  EXPECT_EQ(withChis({1.0, 1.0, 1e16}).total(), 1e16 + 2.0);  // 2 is not
}

TEST(ParSet, StoredChiEndsAGivenTotal) {
  ParSet set = withChis({1, 2});
  set.setTotal(kInf);
  set.setChi(0, 3);
  EXPECT_EQ(set.total(), 5.0);
  EXPECT_TRUE(set.isFinite());
}

TEST(ParSet, TotalIsFiniteWhenTheSumIs) {
  EXPECT_TRUE(withChis({1e300, 1e300}).isFinite());
  EXPECT_FALSE(withChis({kMax, kMax}).isFinite());    // the sum overflows
  EXPECT_FALSE(withChis({1e308, 1e308}).isFinite());  // here too
  EXPECT_FALSE(withChis({1.0, kInf}).isFinite());
  EXPECT_FALSE(withChis({kNan, 1.0}).isFinite());
  EXPECT_FALSE(withChis({kInf, -kInf}).isFinite());
}

TEST(ParSet, FinitenessFollowsReplacedEntries) {
  ParSet set = withChis({kNan, kInf, 1.0});
  set.setChi(0, 2.0);
  EXPECT_FALSE(set.isFinite());
  set.setChi(1, 3.0);
  EXPECT_TRUE(set.isFinite());
  set.setChi(1, kNan);
  EXPECT_FALSE(set.isFinite());
  set.resize(1, 0);
  set.recalc_chi();
  EXPECT_TRUE(set.isFinite());
  EXPECT_EQ(set.total(), 2.0);
}

TEST(ParSet, GivenTotalDecidesWhetherItIsFinite) {
  ParSet set = withChis({1.0});
  set.setTotal(kNan);
  EXPECT_FALSE(set.isFinite());
  set.setTotal(kInf);
  EXPECT_FALSE(set.isFinite());
  set.setTotal(2.0);
  EXPECT_TRUE(set.isFinite());
}

// ---- refused sets ----

TEST(ParSet, RefusedSetKeepsItsPartialSumWhileTheEvaluationIsInfinite) {
  ParSet set = withChis({1.0, 2.0});
  set.setRefused(1, 0.25);
  set.useEvaluatedTotal();
  EXPECT_EQ(set.chi(1), 0.25);
  EXPECT_EQ(set.total(), kInf);
  EXPECT_FALSE(set.isFinite());
}

TEST(ParSet, LaterSumSeesThePartialSumOfARefusedSet) {
  ParSet set = withChis({1.0, 2.0});
  set.setRefused(1, 0.25);
  set.useEvaluatedTotal();
  set.recalc_chi();
  EXPECT_EQ(set.total(), 1.25);
  EXPECT_TRUE(set.isFinite());
}

TEST(ParSet, WithoutRefusedSetsTheEvaluatedTotalIsTheSum) {
  ParSet set = withChis({1.0, 2.0});
  set.setTotal(50.0);
  set.useEvaluatedTotal();
  EXPECT_EQ(set.total(), 3.0);
}

TEST(ParSet, AcceptedEvaluationEndsTheRefusal) {
  ParSet set = withChis({1.0, 2.0});
  set.setRefused(0, 0.5);
  set.setRefused(0, 0.75);
  set.setChi(0, 4.0);
  set.useEvaluatedTotal();
  EXPECT_EQ(set.total(), 6.0);
}

TEST(ParSet, CopyCarriesARefusalInBothDirections) {
  ParSet refused = withChis({1.0});
  refused.setRefused(0, 0.5);
  ParSet target = withChis({9.0});
  target.copy(refused, kNoPositions, 0);
  target.useEvaluatedTotal();
  EXPECT_EQ(target.total(), kInf);
  target.copy(withChis({2.0}), kNoPositions, 0);
  target.useEvaluatedTotal();
  EXPECT_EQ(target.total(), 2.0);
}

TEST(ParSet, ZeroAndShrinkingForgetRefusals) {
  ParSet set = withChis({1.0, 2.0});
  set.setRefused(1, 0.5);
  ParSet shorter = set;
  shorter.resize(1, 0);
  shorter.useEvaluatedTotal();
  EXPECT_EQ(shorter.total(), 1.0);
  set.zero();
  set.useEvaluatedTotal();
  EXPECT_EQ(set.total(), 0.0);
}

// ---- gains of one set ----

TEST(ParSet, SumFallsWhenASetGains) {
  EXPECT_TRUE(withChis({1.0, 1.5, 3.0}).sumFellFrom(1, 2.0));
  EXPECT_FALSE(withChis({1.0, 2.0, 3.0}).sumFellFrom(1, 2.0));
  EXPECT_FALSE(withChis({1.0, 2.5, 3.0}).sumFellFrom(1, 2.0));
}

TEST(ParSet, GainBelowTheLastDigitOfTheSumIsNone) {
  EXPECT_FALSE(withChis({1e20, 1.0}).sumFellFrom(1, 2.0));
  EXPECT_FALSE(withChis({1.0, 1e20}).sumFellFrom(0, 2.0));
  EXPECT_TRUE(withChis({1e20, 1.0}).sumFellFrom(1, 1e10));
}

TEST(ParSet, SumNeverFallsToOrFromNan) {
  EXPECT_FALSE(withChis({kNan, 1.0}).sumFellFrom(0, 2.0));
  EXPECT_FALSE(withChis({1.0, 1.0}).sumFellFrom(0, kNan));
  EXPECT_FALSE(withChis({kNan, 1.0}).sumFellFrom(1, 2.0));
}

TEST(ParSet, SumFallsFromInfinity) { EXPECT_TRUE(withChis({1.0, 1.0}).sumFellFrom(0, kInf)); }

}  // namespace
