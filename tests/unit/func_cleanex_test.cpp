// The CLEANEX build-up: values worked out by hand, its limits, derivatives, recovery.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "Models.h"
#include "SyntheticFit.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <numbers>
#include <string>
#include <vector>

namespace {

using models::Call;
using models::Evaluation;
using models::kUntouched;
using models::Model;
using models::near;

constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr double kLn2 = std::numbers::ln2;

/// The build-up at mixing time x for {k, R1a, R1b}; the other abscissa is not read.
Call at(double x, const std::vector<double>& p) { return {.x = {x, 298}, .p = p}; }

TEST(Cleanex, ByHand) {
  // c = 1/2 and, at x = ln 2 / 2, exponentials 1/4 (amide) and 1/2 (water).
  constexpr double x = kLn2 / 2;
  const Evaluation e = Model("CLEANEX").evaluate(at(x, {3, 1, 2}));
  EXPECT_TRUE(near(e.value, 0.375, 0, 1e-15));
  EXPECT_TRUE(near(e.dydp[0], -0.0625 + 0.375 * x, 0, 1e-14));
  EXPECT_TRUE(near(e.dydp[1], -0.1875 + 0.375 * x, 0, 1e-14));
  EXPECT_TRUE(near(e.dydp[2], 0.1875 - 0.75 * x, 0, 1e-14));
}

TEST(Cleanex, StartsAtZeroWithSlopeK) {
  const Model model("CLEANEX");
  EXPECT_EQ(model.value(at(0, {30, 2, 0.5})), 0.0);
  EXPECT_NEAR(model.value(at(1e-8, {30, 2, 0.5})), 30e-8, 30e-8 * 1e-6);
}

TEST(Cleanex, WithoutExchangeIsZero) {
  EXPECT_EQ(Model("CLEANEX").value(at(0.05, {0, 2, 0.5})), 0.0);
}

TEST(Cleanex, ReachesTheShareOfExchangeInTheAmidesRelaxation) {
  // Water that does not relax: k/(R1a + k) after a long time.
  EXPECT_TRUE(near(Model("CLEANEX").value(at(5, {30, 10, 0})), 0.75, 0, 1e-15));
}

TEST(Cleanex, EqualRatesGiveZeroNotTheLimit) {
  // The limit would be k x exp(-R1b x) = 0.368.
  const Evaluation e = Model("CLEANEX").evaluate(at(0.5, {1, 1, 2}));
  EXPECT_EQ(e.value, 0.0);
  for (std::size_t k = 0; k < 3; ++k) EXPECT_TRUE(std::isfinite(e.dydp[k])) << k;
}

TEST(Cleanex, OverflowOfEitherExponentIsRefused) {
  const Model model("CLEANEX");
  for (const std::vector<double>& p : {std::vector<double>{700, 10, 1}, {1, 709, 1}, {1, 1, 710}}) {
    const Evaluation e = model.evaluate(at(1, p));
    EXPECT_EQ(e.value, kInf);
    for (const double entry : e.dydp) EXPECT_EQ(entry, kUntouched);
  }
  EXPECT_LT(model.value(at(1, {700, 9, 1})), 1.0);  // 709 is inside
  EXPECT_LT(model.value(at(1, {1, 1, 709})), 1.0);
  constexpr double kLast = 709.782712893384;  // ln(DBL_MAX): the last exponent that exp takes
  EXPECT_LT(model.value(at(1, {kLast, 0, 1})), kInf);
  EXPECT_LT(model.value(at(1, {1, 1, kLast})), kInf);
  EXPECT_EQ(model.value(at(1, {1, 1, std::nextafter(kLast, kInf)})), kInf);
}

TEST(Cleanex, ThereIsNoLowerLimit) {
  // Both exponents at -709, below ln(DBL_MIN): exp(709) is still finite.
  const double value = Model("CLEANEX").value(at(-1, {2, 707, 708}));
  EXPECT_TRUE(std::isfinite(value));
  EXPECT_TRUE(near(value, 2 * (std::exp(708.0L) - std::exp(709.0L)), 0, 1e-12));
}

TEST(Cleanex, AMaskedDerivativeIsWrittenAllTheSame) {
  const Call call = at(0.05, {30, 2, 0.5});
  Call masked = call;
  masked.masked = {0, 1, 2};
  EXPECT_EQ(Model("CLEANEX").evaluate(call).dydp, Model("CLEANEX").evaluate(masked).dydp);
}

TEST(Cleanex, DerivativesMatchCentralDifferences) {
  const Model model("CLEANEX");
  for (const std::vector<double>& p :
       {std::vector<double>{30, 2, 0.5}, {2, 1, 8}, {400, 20, 0.3}}) {
    for (const double x : {0.005, 0.02, 0.1}) {
      const Evaluation e = model.evaluate(at(x, p));
      for (std::size_t k = 0; k < 3; ++k) {
        Call ahead = at(x, p);
        Call behind = ahead;
        const double step = std::cbrt(std::numeric_limits<double>::epsilon()) * p[k];
        ahead.p[k] += step;
        behind.p[k] -= step;
        const double difference =
            (model.value(ahead) - model.value(behind)) / (ahead.p[k] - behind.p[k]);
        EXPECT_TRUE(near(e.dydp[k], difference, 1e-10 * std::abs(e.value / p[k]), 1e-6)) << k;
      }
    }
  }
}

/// Intensities of an amide at mixing times from 5 to 100 ms, with noise of 0.005.
std::string amide(double k, double R1a, double R1b, synthetic::Noise& noise) {
  std::string lines;
  for (int i = 1; i <= 20; ++i) {
    const double x = 0.005 * i;
    const double y = k / (R1a + k - R1b) * (std::exp(-R1b * x) - std::exp(-(R1a + k) * x));
    lines += synthetic::dataLine({x, 298}, "1", y + 0.005 * noise(), 0.005);
  }
  return lines;
}

TEST(Cleanex, KnownParametersAreRecovered) {
  synthetic::Noise noise(11);
  synthetic::Fitted fit(
      "FUNCTION CLEANEX\nMETHOD ONEEX\nSET amide\nPAR k 1 200 1 10\nPAR R1a_1 0 50 1 5\n"
      "FIXED R1b_1 0.6\n" +
      amide(40, 12, 0.6, noise));
  synthetic::expectChi2OfNoise(fit);
  synthetic::expectRecovered(fit, "amide::k", 40, 0.1);
  synthetic::expectRecovered(fit, "amide::R1a_1", 12, 0.3);
}

TEST(Cleanex, AWaterRateSharedByAllAmidesIsRecovered) {
  synthetic::Noise noise(12);
  const double exchange[] = {10, 40, 90};
  std::string text = "FUNCTION CLEANEX\nMETHOD ONEEX\nGPAR water 0 20 1 3\n";
  for (const double k : exchange) {
    text += "SET amide" + std::to_string(static_cast<int>(k)) +
            "\nPAR k 1 200 1 20\nPAR R1a_1 0 50 1 5\nPAR R1b_1 water\n" + amide(k, 8, 2.5, noise);
  }
  synthetic::Fitted fit(text);
  synthetic::expectChi2OfNoise(fit);
  synthetic::expectRecovered(fit, "GLOBAL::water", 2.5, 0.3);
  for (const double k : exchange) {
    synthetic::expectRecovered(fit, "amide" + std::to_string(static_cast<int>(k)) + "::k", k, 0.1);
  }
}

}  // namespace
