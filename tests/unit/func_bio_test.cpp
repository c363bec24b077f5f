// Recovery curves: values worked out by hand, the limits of exp, derivatives, recovery.
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

// ln(DBL_MIN) and ln(DBL_MAX), the range of exponents.
constexpr double kExpMin = -708.3964185322641;
constexpr double kExpMax = 709.782712893384;

void expectRefused(const std::string& name, double x, const std::vector<double>& p, double value) {
  const Evaluation e = Model(name).evaluate({.x = {x}, .p = p});
  EXPECT_EQ(e.value, value);
  for (const double entry : e.dydp) EXPECT_EQ(entry, kUntouched);
}

TEST(TwoExp3, ByHand) {
  // Exponentials 1/4 and 1/2 at x = 2; A = 0.75 leaves 0.25.
  const Evaluation e = Model("2Exp3").evaluate({.x = {2}, .p = {0.75, -kLn2, -kLn2 / 2, 5}});
  EXPECT_TRUE(near(e.value, 0.1875 + 0.125 + 5, 0, 1e-15));
  EXPECT_TRUE(near(e.dydp[0], 0.25, 0, 1e-15));
  EXPECT_TRUE(near(e.dydp[1], 0.375, 0, 1e-15));
  EXPECT_TRUE(near(e.dydp[2], 0.25, 0, 1e-15));
  EXPECT_EQ(e.dydp[3], 1.0);
}

TEST(TwoExp3, TheSecondAmplitudeIsNeverNegative) {
  // A = 1.5 leaves 0.5, not -0.5.
  const Evaluation e = Model("2Exp3").evaluate({.x = {2}, .p = {1.5, -kLn2, -kLn2 / 2, 5}});
  EXPECT_TRUE(near(e.value, 0.375 + 0.25 + 5, 0, 1e-15));
  EXPECT_TRUE(near(e.dydp[2], 0.5, 0, 1e-15));
}

TEST(TwoExp3, DerivativeForALeavesOutTheSecondAmplitude) {
  // The whole one would be 1/4 - 1/2 below A = 1 and 1/4 + 1/2 above.
  const Model model("2Exp3");
  for (const double a : {0.75, 1.0, 1.5}) {
    const Evaluation e = model.evaluate({.x = {2}, .p = {a, -kLn2, -kLn2 / 2, 5}});
    EXPECT_TRUE(near(e.dydp[0], 0.25, 0, 1e-15)) << a;
  }
}

TEST(TwoExp3, UnderflowOfEitherExponentIsRefusedBeforeOverflowOfTheOther) {
  expectRefused("2Exp3", 1, {0.5, -709, 0, 1}, -kInf);
  expectRefused("2Exp3", 1, {0.5, 0, -709, 1}, -kInf);
  expectRefused("2Exp3", 1, {0.5, -709, 710, 1}, -kInf);
  expectRefused("2Exp3", 1, {0.5, 710, -709, 1}, -kInf);
  expectRefused("2Exp3", 1, {0.5, 710, 0, 1}, kInf);
  expectRefused("2Exp3", 1, {0.5, 0, 710, 1}, kInf);
}

TEST(TwoExp3, ExponentsEqualToTheLimitsAreAccepted) {
  const Model model("2Exp3");
  EXPECT_TRUE(std::isfinite(model.value({.x = {1}, .p = {0.5, kExpMin, kExpMin, 1}})));
  EXPECT_TRUE(std::isfinite(model.value({.x = {1}, .p = {0.5, kExpMax, 0, 1}})));
  EXPECT_EQ(model.value({.x = {1}, .p = {0.5, 0, std::nextafter(kExpMin, -kInf), 1}}), -kInf);
  EXPECT_EQ(model.value({.x = {1}, .p = {0.5, 0, std::nextafter(kExpMax, kInf), 1}}), kInf);
}

TEST(Sire, ByHand) {
  const Evaluation e = Model("SIRE").evaluate({.x = {4}, .p = {1.2, -kLn2 / 2}});
  EXPECT_TRUE(near(e.value, 0.6, 0, 1e-15));
  EXPECT_TRUE(near(e.dydp[0], 0.5, 0, 1e-15));
  EXPECT_TRUE(near(e.dydp[1], -2.4, 0, 1e-15));
}

TEST(Sire, StartsInverted) {
  const Evaluation e = Model("SIRE").evaluate({.x = {0}, .p = {1.2, -3}});
  EXPECT_EQ(e.value, -1.2);
  EXPECT_EQ(e.dydp[0], -1.0);
  EXPECT_EQ(e.dydp[1], 0.0);
}

TEST(Sire, IsRefusedOutsideTheLimits) {
  expectRefused("SIRE", 1, {1, -709}, -kInf);
  expectRefused("SIRE", 1, {1, 710}, kInf);
  EXPECT_EQ(Model("SIRE").value({.x = {1}, .p = {1, kExpMin}}), 1.0);
}

TEST(BioFamily, MaskedDerivativesAreWrittenAllTheSame) {
  for (const char* name : {"2Exp3", "SIRE"}) {
    const Model model(name);
    Call call = {.x = {0.4}, .p = {0.6, -2, -0.5, 0.1}};
    call.p.resize(model.size());
    const Evaluation e = model.evaluate(call);
    for (std::size_t k = 0; k < model.size(); ++k) call.masked.push_back(k);
    EXPECT_EQ(model.evaluate(call).dydp, e.dydp) << name;
  }
}

TEST(BioFamily, DerivativesMatchCentralDifferences) {
  for (const char* name : {"2Exp3", "SIRE"}) {
    const Model model(name);
    for (const double x : {0.3, 2.0}) {
      Call call = {.x = {x}, .p = {0.6, -2, -0.5, 0.1}};
      call.p.resize(model.size());
      const Evaluation e = model.evaluate(call);
      for (std::size_t k = 0; k < model.size(); ++k) {
        if (name == std::string("2Exp3") && k == 0) continue;  // inexact on purpose
        Call ahead = call;
        Call behind = call;
        const double step = std::cbrt(std::numeric_limits<double>::epsilon()) * std::abs(call.p[k]);
        ahead.p[k] += step;
        behind.p[k] -= step;
        const double difference =
            (model.value(ahead) - model.value(behind)) / (ahead.p[k] - behind.p[k]);
        EXPECT_TRUE(near(e.dydp[k], difference, 1e-10 * std::abs(e.value / call.p[k]), 1e-6))
            << name << ' ' << model.parmName(k);
      }
    }
  }
}

// ---- recovery of known parameters ----

std::string sireCurve(double a, double b, synthetic::Noise& noise) {
  std::string lines;
  for (int i = 0; i < 25; ++i) {
    const double x = 0.1 * i;
    lines += synthetic::dataLine({x}, "", a - 2 * a * std::exp(b * x) + 0.01 * noise(), 0.01);
  }
  return lines;
}

TEST(Sire, KnownParametersAreRecovered) {
  synthetic::Noise noise(21);
  synthetic::Fitted fit(
      "FUNCTION SIRE\nMETHOD ONEEX\nSET curve\nPAR a 0.1 1.4 1 0.5\nPAR b -10 0 1 -0.5\n" +
      sireCurve(0.95, -1.8, noise));
  synthetic::expectChi2OfNoise(fit);
  synthetic::expectRecovered(fit, "curve::a", 0.95, 0.05);
  synthetic::expectRecovered(fit, "curve::b", -1.8, 0.05);
}

TEST(Sire, ASharedRateIsRecovered) {
  synthetic::Noise noise(22);
  synthetic::Fitted fit(
      "FUNCTION SIRE\nMETHOD ONEEX\nGPAR rate -10 0 1 -0.5\n"
      "SET one\nPAR a 0.1 1.4 1 0.5\nPAR b rate\n" +
      sireCurve(0.95, -1.8, noise) + "SET two\nPAR a 0.1 1.4 1 0.5\nPAR b rate\n" +
      sireCurve(0.6, -1.8, noise));
  synthetic::expectChi2OfNoise(fit);
  synthetic::expectRecovered(fit, "GLOBAL::rate", -1.8, 0.05);
  synthetic::expectRecovered(fit, "one::a", 0.95, 0.05);
  synthetic::expectRecovered(fit, "two::a", 0.6, 0.05);
}

std::string twoExp3Curve(double a, double b, double e, double f, double sigma,
                         synthetic::Noise& noise) {
  std::string lines;
  for (int i = 0; i < 40; ++i) {
    const double x = 0.1 * i;
    const double y = a * std::exp(b * x) + std::abs(1 - a) * std::exp(e * x) + f;
    lines += synthetic::dataLine({x}, "", y + sigma * noise(), 0.01);
  }
  return lines;
}

const std::string kRatesAndBase = "PAR b -20 0 1 -8\nPAR e -2 0 1 -0.3\nPAR f -1 1 1 0\n";

TEST(TwoExp3, KnownRatesAreRecoveredAtAFixedAmplitude) {
  synthetic::Noise noise(23);
  synthetic::Fitted fit("FUNCTION 2Exp3\nMETHOD ONEEX\nSET curve\nFIXED a 0.7\n" + kRatesAndBase +
                        twoExp3Curve(0.7, -5, -0.6, 0.2, 0.01, noise));
  synthetic::expectChi2OfNoise(fit);
  synthetic::expectRecovered(fit, "curve::b", -5, 0.2);
  synthetic::expectRecovered(fit, "curve::e", -0.6, 0.2);
  synthetic::expectRecovered(fit, "curve::f", 0.2, 0.2);
}

TEST(TwoExp3, ASharedRateIsRecovered) {
  synthetic::Noise noise(24);
  const std::string own = "PAR b shared\nPAR e -2 0 1 -0.3\nPAR f -1 1 1 0\n";
  synthetic::Fitted fit(
      "FUNCTION 2Exp3\nMETHOD ONEEX\nGPAR shared -20 0 1 -8\n"
      "SET one\nFIXED a 0.7\n" +
      own + twoExp3Curve(0.7, -5, -0.6, 0.2, 0.01, noise) + "SET two\nFIXED a 1.4\n" + own +
      twoExp3Curve(1.4, -5, -0.9, 0.1, 0.01, noise));
  synthetic::expectChi2OfNoise(fit);
  synthetic::expectRecovered(fit, "GLOBAL::shared", -5, 0.2);
  synthetic::expectRecovered(fit, "one::e", -0.6, 0.2);
  synthetic::expectRecovered(fit, "two::e", -0.9, 0.2);
}

TEST(TwoExp3, TheAmplitudeIsFoundOnAGrid) {
  // Its derivative cannot lead there: the fit from every grid point stays near it.
  synthetic::Noise noise(25);
  synthetic::Fitted fit(
      "FUNCTION 2Exp3\nMETHOD GRID\nSET curve\nPAR a 0.5 0.9 41\nPAR b -8\nPAR e -0.3\nPAR f 0\n" +
      twoExp3Curve(0.7, -5, -0.6, 0.2, 0.01, noise));
  EXPECT_NEAR(fit.value("curve::a"), 0.7, 0.03);
  EXPECT_NEAR(fit.value("curve::b"), -5, 0.5);
}

}  // namespace
