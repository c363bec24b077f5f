// Sums over the passes of an error analysis.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "PassSums.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

namespace {

ParSet valueSet(const std::vector<double>& parms, const std::vector<double>& chis) {
  ParSet set;
  set.resize(chis.size(), parms.size());
  set.par = parms;
  for (std::size_t i = 0; i < chis.size(); ++i) set.setChi(static_cast<int>(i), chis[i]);
  return set;
}

double meanAsError(double mean, double /*square_sum*/, int /*passes*/) { return mean; }
double squareSumAsError(double /*mean*/, double square_sum, int /*passes*/) { return square_sum; }
double passesAsError(double /*mean*/, double /*square_sum*/, int passes) { return passes; }

struct Result {
  ParSet mean = valueSet({0, 0}, {0, 0});
  ParSet error = mean;
};

Result finish(const PassSums& sums, PassSums::Error error_of) {
  Result result;
  sums.finish(error_of, result.mean, result.error);
  return result;
}

PassSums twoPasses() {
  PassSums sums;
  sums.reset(2, 2);
  const ParSet centre = valueSet({1, 2}, {3, 4});
  sums.addAll(valueSet({2, 5}, {4, 6}), centre);
  sums.addAll(valueSet({4, 1}, {1, 9}), centre);
  return sums;
}

TEST(PassSums, MeansAreOverAllPasses) {
  const ParSet mean = finish(twoPasses(), squareSumAsError).mean;
  EXPECT_EQ(mean.par, (std::vector<double>{3, 3}));
  EXPECT_EQ(mean.chi(0), 2.5);
  EXPECT_EQ(mean.chi(1), 7.5);
  EXPECT_EQ(mean.total(), 10);
}

TEST(PassSums, SquaresAreOfDeviationsFromTheCentre) {
  const ParSet error = finish(twoPasses(), squareSumAsError).error;
  EXPECT_EQ(error.par, (std::vector<double>{1 + 9, 9 + 1}));
  EXPECT_EQ(error.chi(0), 1 + 4);
  EXPECT_EQ(error.chi(1), 4 + 25);
  EXPECT_EQ(error.total(), 3 * 3 + 3 * 3) << "not the sum over the sets";
}

TEST(PassSums, ErrorIsComputedFromTheMeanToo) {
  const Result result = finish(twoPasses(), meanAsError);
  EXPECT_EQ(result.error.par, result.mean.par);
  EXPECT_EQ(result.error.total(), 10);
}

TEST(PassSums, EverySumCountsThePassesThatAddedIt) {
  PassSums sums;
  sums.reset(2, 2);
  const ParSet centre = valueSet({1, 2}, {3, 4});
  sums.addSet(valueSet({5, 8}, {1, 2}), centre, 0, std::vector<int>{0});
  sums.addSet(valueSet({7, 9}, {5, 8}), centre, 1, std::vector<int>{0, 1});
  sums.addSet(valueSet({9, 4}, {5, 6}), centre, 1, std::vector<int>{0, 1});
  const Result result = finish(sums, passesAsError);
  EXPECT_EQ(result.error.par, (std::vector<double>{3, 2}));
  EXPECT_EQ(result.error.chi(0), 1);
  EXPECT_EQ(result.error.chi(1), 2);
  EXPECT_EQ(result.error.total(), 3);
  EXPECT_EQ(result.mean.par, (std::vector<double>{7, 6.5}));
  EXPECT_EQ(result.mean.chi(0), 1);
  EXPECT_EQ(result.mean.chi(1), 7);
  EXPECT_DOUBLE_EQ(result.mean.total(), (3 + 13 + 11) / 3.0);
}

TEST(PassSums, WithoutAPassNothingIsANumber) {
  PassSums sums;
  sums.reset(2, 2);
  const Result result = finish(sums, passesAsError);
  EXPECT_TRUE(std::isnan(result.mean.par[0]));
  EXPECT_TRUE(std::isnan(result.mean.chi(1)));
  EXPECT_TRUE(std::isnan(result.mean.total()));
  EXPECT_EQ(result.error.par[0], 0);
}

TEST(PassSums, ResetForgetsEarlierPasses) {
  PassSums sums = twoPasses();
  sums.reset(2, 2);
  sums.addAll(valueSet({2, 2}, {2, 2}), valueSet({0, 0}, {0, 0}));
  const Result result = finish(sums, squareSumAsError);
  EXPECT_EQ(result.mean.par[0], 2);
  EXPECT_EQ(result.error.par[0], 4);
  EXPECT_EQ(result.error.total(), 16);
}

}  // namespace
